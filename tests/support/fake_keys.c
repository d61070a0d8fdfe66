/* Presses and releases keys through KWin's fake input protocol, so that they
 * go through KWin's own input handling (global shortcuts included).
 *   fake-keys KEY[+KEY...] ...   e.g. fake-keys leftshift+leftmeta+5
 * Key names: leftshift leftmeta leftctrl leftalt 0-9 a-z print, or a number
 * (a Linux evdev key code). KWin offers the protocol only to clients it
 * trusts: KWIN_WAYLAND_NO_PERMISSION_CHECKS=1 in KWin's environment, or a
 * desktop file for this executable with
 * X-KDE-Wayland-Interfaces=org_kde_kwin_fake_input. */
#include <linux/input-event-codes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wayland-client.h>

#include "fake-input-client-protocol.h"

static struct org_kde_kwin_fake_input* fake;

static void global(void* data, struct wl_registry* reg, uint32_t name, const char* iface, uint32_t version) {
    (void)data;
    if (strcmp(iface, org_kde_kwin_fake_input_interface.name) == 0 && version >= 4)
        fake = wl_registry_bind(reg, name, &org_kde_kwin_fake_input_interface, 4);
}
static void global_remove(void* data, struct wl_registry* reg, uint32_t name) { (void)data; (void)reg; (void)name; }
static const struct wl_registry_listener listener = {global, global_remove};

static int code_of(const char* n) {
    static const struct { const char* name; int code; } names[] = {
        {"leftshift", KEY_LEFTSHIFT}, {"leftmeta", KEY_LEFTMETA}, {"leftctrl", KEY_LEFTCTRL},
        {"leftalt", KEY_LEFTALT}, {"print", KEY_SYSRQ}, {"esc", KEY_ESC}, {"enter", KEY_ENTER},
        {"1", KEY_1}, {"2", KEY_2}, {"3", KEY_3}, {"4", KEY_4}, {"5", KEY_5},
        {"6", KEY_6}, {"7", KEY_7}, {"8", KEY_8}, {"9", KEY_9}, {"0", KEY_0}};
    for (size_t i = 0; i < sizeof names / sizeof names[0]; ++i)
        if (strcmp(n, names[i].name) == 0) return names[i].code;
    if (strlen(n) == 1 && n[0] >= 'a' && n[0] <= 'z') {
        static const int letters[] = {KEY_A, KEY_B, KEY_C, KEY_D, KEY_E, KEY_F, KEY_G, KEY_H, KEY_I,
                                      KEY_J, KEY_K, KEY_L, KEY_M, KEY_N, KEY_O, KEY_P, KEY_Q, KEY_R,
                                      KEY_S, KEY_T, KEY_U, KEY_V, KEY_W, KEY_X, KEY_Y, KEY_Z};
        return letters[n[0] - 'a'];
    }
    char* end;
    long v = strtol(n, &end, 10);
    return *end ? -1 : (int)v;
}

int main(int argc, char** argv) {
    struct wl_display* d = wl_display_connect(NULL);
    if (!d) { fprintf(stderr, "fake-keys: no Wayland display\n"); return 1; }
    struct wl_registry* reg = wl_display_get_registry(d);
    wl_registry_add_listener(reg, &listener, NULL);
    wl_display_roundtrip(d);
    if (!fake) { fprintf(stderr, "fake-keys: the compositor does not offer org_kde_kwin_fake_input v4 to us\n"); return 2; }
    org_kde_kwin_fake_input_authenticate(fake, "fake-keys", "tests");
    for (int a = 1; a < argc; ++a) {
        int codes[8], n = 0;
        char* copy = strdup(argv[a]);
        for (char* t = strtok(copy, "+"); t && n < 8; t = strtok(NULL, "+")) {
            codes[n] = code_of(t);
            if (codes[n] < 0) { fprintf(stderr, "fake-keys: unknown key %s\n", t); return 64; }
            ++n;
        }
        free(copy);
        for (int i = 0; i < n; ++i) org_kde_kwin_fake_input_keyboard_key(fake, codes[i], 1);
        for (int i = n - 1; i >= 0; --i) org_kde_kwin_fake_input_keyboard_key(fake, codes[i], 0);
        wl_display_roundtrip(d);
    }
    wl_display_roundtrip(d);
    wl_display_disconnect(d);
    return 0;
}
