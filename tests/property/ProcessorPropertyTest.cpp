// clang-format off: the library's headers use assert without including it
#include <cassert>
// clang-format on
#include <fmt/format.h>
#include <rapidcheck/detail/TestListener.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "World.h"

namespace zebcam::test {
namespace {

constexpr char ID[] = "ProcessorProperty/HoldsInAnyOrder";
constexpr char CASES_VARIABLE[] = "ZSL_PROPERTY_CASES";
constexpr char FORK_VARIABLE[] = "ZSL_PROPERTY_FORK";
constexpr int DEFAULT_CASES = ZSL_DEFAULT_CASES;
constexpr unsigned CASE_LIMIT_S = 20;  ///< of a case that runs in a process of its own

std::string gCommand;  ///< repeats the run
std::string gCase;     ///< the events of the running case

/// The command that runs this program again so configured.
std::string commandOf(rc::detail::Configuration const& configuration, std::string const& more) {
    char path[4096] = {};
    ssize_t const length = readlink("/proc/self/exe", path, sizeof(path) - 1);
    return fmt::format("{}RC_PARAMS=\"{}\" {}", more,
                       rc::detail::configToMinimalString(configuration),
                       length > 0 ? path : "property_test");
}

/// Empty when every rule holds.
std::string run(Events const& events, Tried& tried) {
    std::ostringstream place;
    try {
        World world(tried);
        for (size_t i = 0; i < events.list.size(); ++i) {
            place.str("");
            place << "event " << i + 1 << " (" << events.list[i] << ")";
            world.happen(events.list[i]);
        }
        place.str("the end");
        world.close();
    } catch (std::exception const& broken) {
        return std::string(broken.what()) + "\nat " + place.str();
    }
    return {};
}

/// The same in a process of its own, for cases that end the process or never end.
std::string runInChild(Events const& events) {
    int ends[2] = {};
    if (pipe(ends) != 0) {
        throw std::runtime_error("no pipe");
    }
    pid_t const child = fork();
    if (child == 0) {
        std::signal(SIGABRT, SIG_DFL);
        alarm(CASE_LIMIT_S);
        Tried tried;
        std::string const problem = run(events, tried);
        bool const isTold =
            write(ends[1], problem.data(), problem.size()) == static_cast<ssize_t>(problem.size());
        _exit(isTold ? 0 : 1);
    }
    close(ends[1]);
    std::string problem;
    for (char buffer[1024]; ssize_t const got = read(ends[0], buffer, sizeof(buffer));) {
        problem.append(buffer, static_cast<size_t>(std::max<ssize_t>(0, got)));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) {
        problem += WIFSIGNALED(status) ? fmt::format("ended by signal {}", WTERMSIG(status))
                                       : "ended by exit";
    }
    return problem;
}

/// A fault that ends the process leaves what leads to it.
extern "C" void tellCase(int) {
    std::string const text =
        "\nthe process ends in this case:\n" + gCase + "its shortest form:\n" + gCommand + "\n";
    [[maybe_unused]] auto const written = write(STDERR_FILENO, text.data(), text.size());
}

class SilentListener final : public rc::detail::TestListener {
    void onTestCaseFinished(rc::detail::CaseDescription const&) override {}
    void onShrinkTried(rc::detail::CaseDescription const&, bool) override {}
    void onTestFinished(rc::detail::TestMetadata const&, rc::detail::TestResult const&) override {}
};

rc::detail::Configuration configurationOf() {
    rc::detail::Configuration configuration = rc::detail::configuration();
    if (std::getenv("RC_PARAMS") == nullptr) {
        configuration.testParams.seed = 1;  // the same cases wherever the tests run
        configuration.testParams.maxSuccess = DEFAULT_CASES;
    }
    if (char const* const cases = std::getenv(CASES_VARIABLE)) {
        configuration.testParams.maxSuccess = std::atoi(cases);
    }
    return configuration;
}

/// The broken rule, what leads to it in its shortest form, and the command that repeats it.
std::string messageOf(rc::detail::TestResult const& result, rc::detail::Configuration configuration,
                      bool isForked) {
    std::ostringstream message;
    if (result.is<rc::detail::FailureResult>()) {
        auto const& failure = result.get<rc::detail::FailureResult>();
        configuration.reproduce = {{ID, failure.reproduce}};
        message << failure.description << "\nafter\n" << failure.counterExample.front().second;
    } else {
        rc::detail::printResultMessage(result, message);
    }
    message << "repeat with\n  "
            << commandOf(configuration, isForked ? std::string(FORK_VARIABLE) + "=1 " : "");
    return message.str();
}

TEST(ProcessorProperty, HoldsInAnyOrder) {
    auto const configuration = configurationOf();
    ASSERT_GT(configuration.testParams.maxSuccess, 0)
        << CASES_VARIABLE << ": not a number of cases";
    bool const isForked = std::getenv(FORK_VARIABLE) != nullptr;
    gCommand = commandOf(configuration, std::string(FORK_VARIABLE) + "=1 ");
    std::signal(SIGABRT, tellCase);
    Tried tried;
    SilentListener listener;
    auto const result = rc::detail::checkTestable(
        [&] {
            auto const events = *anyEvents();
            std::ostringstream text;
            text << events;
            gCase = text.str();
            ++tried.cases;
            std::string const problem = isForked ? runInChild(events) : run(events, tried);
            if (!problem.empty()) {
                RC_FAIL(problem);
            }
        },
        rc::detail::TestMetadata{ID, "HoldsInAnyOrder"}, configuration.testParams, listener,
        configuration.reproduce);
    std::signal(SIGABRT, SIG_DFL);
    std::cout << "property: " << tried.summary() << '\n';
    if (!result.is<rc::detail::SuccessResult>()) {
        FAIL() << messageOf(result, configuration, isForked);
    }
}

}  // namespace
}  // namespace zebcam::test
