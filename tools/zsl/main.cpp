#include <unistd.h>

#include <csignal>
#include <iostream>
#include <new>

#include "base/AtomicFile.h"
#include "base/TextStyle.h"
#include "commands/Commands.h"

using zebcam::tool::base::styleFor;

namespace {

/// Ends the program as the signal does by itself, but without the files that it began.
void endBySignal(int signal) {
    zebcam::tool::base::AtomicFile::removeTemporaries();
    std::signal(signal, SIG_DFL);
    raise(signal);
}

}  // namespace

int main(int argc, char** argv) {
    // Commands that go on for long look for these themselves.
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (std::signal(signal, endBySignal) == SIG_IGN) {
            std::signal(signal, SIG_IGN);
        }
    }
    std::set_new_handler(zebcam::tool::commands::endForWantOfMemory);
    bool const isTerminal = isatty(STDOUT_FILENO) != 0 && isatty(STDERR_FILENO) != 0;
    return zebcam::tool::commands::runCli(
        argc, argv,
        {std::cout, std::cerr, isTerminal, styleFor(STDOUT_FILENO), styleFor(STDERR_FILENO)});
}
