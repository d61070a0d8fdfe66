#include "platform/x11/client_identity.h"

#include <xcb/res.h>

#include <bit>
#include <filesystem>
#include <fstream>

namespace pv::x11 {
namespace {

std::optional<int32_t> statedPid(X11Connection& conn, xcb_window_t window) {
    auto values = conn.readCardinals(window, conn.atom("_NET_WM_PID"), XCB_ATOM_CARDINAL);
    if (!values || values->empty() || (*values)[0] == 0 || (*values)[0] >= uint32_t(kDerivedClientBase))
        return std::nullopt;
    return static_cast<int32_t>((*values)[0]);
}

std::optional<int32_t> serverKnownPid(X11Connection& conn, xcb_window_t window) {
    const xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    auto reply = conn.get(xcb_res_query_client_ids_reply, xcb_res_query_client_ids(conn.raw(), 1, &spec));
    if (!reply) return std::nullopt;
    for (auto it = xcb_res_query_client_ids_ids_iterator(reply.get()); it.rem > 0; xcb_res_client_id_value_next(&it)) {
        if (!(it.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID)) continue;
        if (xcb_res_client_id_value_value_length(it.data) < 1) continue;
        const uint32_t pid = xcb_res_client_id_value_value(it.data)[0];
        if (pid != 0 && pid < uint32_t(kDerivedClientBase)) return static_cast<int32_t>(pid);
    }
    return std::nullopt;
}

}  // namespace

int32_t clientNumber(uint32_t window, uint32_t resourceIdMask) {
    const int shift = std::countr_zero(~resourceIdMask);
    const uint32_t base = (window & ~resourceIdMask) >> (shift >= 32 ? 31 : shift);
    return kDerivedClientBase | static_cast<int32_t>(base & 0x3fffffffu);
}

int32_t windowOwnerPid(X11Connection& conn, xcb_window_t window, bool hasXRes) {
    if (hasXRes)
        if (auto pid = serverKnownPid(conn, window)) return *pid;
    if (auto pid = statedPid(conn, window)) return *pid;
    return clientNumber(window, xcb_get_setup(conn.raw())->resource_id_mask);
}

std::optional<std::string> processName(int32_t pid) {
    if (pid <= 0 || pid >= kDerivedClientBase) return std::nullopt;
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    if (!std::getline(comm, name) || name.empty()) return std::nullopt;
    return name;
}

std::optional<std::string> processExecutable(int32_t pid) {
    if (pid <= 0 || pid >= kDerivedClientBase) return std::nullopt;
    std::error_code error;
    std::string path = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", error).string();
    if (error || path.empty()) return processName(pid);
    // The kernel marks an executable replaced since the process started (an upgrade).
    if (const std::string deleted = " (deleted)"; path.ends_with(deleted)) path.resize(path.size() - deleted.size());
    return path;
}

}  // namespace pv::x11
