#include <unistd.h>

#include <iostream>
#include <new>

#include "base/TextStyle.h"
#include "commands/Commands.h"

using zebcam::tool::base::styleFor;

int main(int argc, char** argv) {
    std::set_new_handler(zebcam::tool::commands::endForWantOfMemory);
    bool const isTerminal = isatty(STDOUT_FILENO) != 0 && isatty(STDERR_FILENO) != 0;
    return zebcam::tool::commands::runCli(
        argc, argv,
        {std::cout, std::cerr, isTerminal, styleFor(STDOUT_FILENO), styleFor(STDERR_FILENO)});
}
