#include "cli/command_support.h"

#include <iostream>
#include <new>

#include "app/window_server_choice.h"
#include "platform/text_line.h"

namespace pv::cli {

void printFailure(const std::string& command, const std::string& text) {
    std::cerr << command << ": " << oneLine(text) << std::endl;
}

std::unique_ptr<WindowServer> openServerFor(const std::string& command, const std::string& desktop, int* exitCode) {
    std::string error;
    try {
        if (auto server = openWindowServer(desktop, &error)) return server;
    } catch (const std::bad_alloc&) {
        printFailure(command, "out of memory while making the pictures of " + desktop);
        *exitCode = 1;
        return nullptr;
    }
    printFailure(command, error);
    *exitCode = desktop.empty() ? 1 : 2;
    return nullptr;
}

}  // namespace pv::cli
