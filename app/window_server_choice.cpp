#include "app/window_server_choice.h"

#include "platform/fixture_desktop.h"
#include "platform/x11/x11_window_server.h"

namespace pv {

std::unique_ptr<WindowServer> openWindowServer(const std::string& desktop, std::string* error) {
    if (!desktop.empty()) {
        try {
            return FixtureDesktop::load(desktop);
        } catch (const FixtureError& e) {
            *error = e.what();
            return nullptr;
        }
    }
    return X11WindowServer::connect("", error);
}

}  // namespace pv
