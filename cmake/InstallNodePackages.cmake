# Run by the build: npm's packages of FROM's package-lock.json, into TO.
file(COPY ${FROM}/package.json ${FROM}/package-lock.json DESTINATION ${TO})

# The packages' scripts are not run: none is needed. What npm keeps from an earlier time is enough;
# without a network it is to say so at once instead of trying for a minute.
execute_process(
  COMMAND ${NPM} ci --prefer-offline --fetch-retries=0 --fetch-timeout=60000 --ignore-scripts
    --no-audit --no-fund --no-update-notifier --loglevel=error
  WORKING_DIRECTORY ${TO}
  RESULT_VARIABLE status
  ERROR_VARIABLE words)
if(NOT status EQUAL 0)
  message("${words}")
  message(FATAL_ERROR "npm could not install what ${FROM}/package-lock.json names: is there a "
    "network? The tool can be built without the report's page: -DZSL_BUILD_PAGE=OFF")
endif()
file(TOUCH ${TO}/packages.stamp)
