// Shared body of the Plenavue Shell extension, written once for both extension
// styles. It imports nothing itself: the wrapper (legacy extension.js for
// Shell 43-44, ES module for 45+) hands it the libraries it needs. The build
// step copies this file unchanged for 43-44 and appends an export line for 45+.
//
// What it does: owns a name on the session bus and serves the window list and
// per-window pictures, only to the executables named in metadata.json
// ("allowed-executables", written at install time); and grabs the capture hot
// keys, forwarding each press to the running program.

/* exported createService */

const BUS_NAME = 'com.veltrano.Plenavue.Shell';
const OBJECT_PATH = '/com/veltrano/Plenavue/Shell';
const API_VERSION = 1;
const ERROR_NOT_ALLOWED = 'com.veltrano.Plenavue.Shell1.Error.NotAllowed';
const ERROR_FAILED = 'com.veltrano.Plenavue.Shell1.Error.Failed';

const APP_BUS_NAME = 'com.veltrano.Plenavue';
const APP_OBJECT_PATH = '/com/veltrano/Plenavue';
const APP_INTERFACE = 'com.veltrano.Plenavue.Commands';

const INTERFACE_XML = `<node>
  <interface name="com.veltrano.Plenavue.Shell1">
    <method name="ListWindows">
      <arg type="s" name="json" direction="out"/>
    </method>
    <method name="CaptureWindows">
      <arg type="at" name="ids" direction="in"/>
      <arg type="b" name="frameOnly" direction="in"/>
      <arg type="a{sv}" name="options" direction="in"/>
      <arg type="h" name="target" direction="in"/>
      <arg type="s" name="json" direction="out"/>
    </method>
    <method name="CaptureDesktop">
      <arg type="h" name="target" direction="in"/>
      <arg type="s" name="json" direction="out"/>
    </method>
    <method name="ActivateWindow">
      <arg type="t" name="id" direction="in"/>
    </method>
    <property name="ApiVersion" type="u" access="read"/>
    <property name="HotKeys" type="a{ss}" access="read"/>
  </interface>
</node>`;

const DEFAULT_HOT_KEYS = {
    'capture-all': '<Shift><Super>5',
    'capture-selected': '<Shift><Super>6',
};

function enumName(enumObject, value) {
    for (const [k, v] of Object.entries(enumObject)) {
        if (v === value)
            return k;
    }
    return String(value);
}

function rectObject(r) {
    return {x: r.x, y: r.y, width: r.width, height: r.height};
}


function createService(lib) {
    const {Gio, GLib, Meta, Shell, Main, cairo, Mtk, metadata} = lib;
    const UnixOutputStream = lib.GioUnix?.OutputStream ?? Gio.UnixOutputStream;
    let Gdk = lib.Gdk ?? null;
    if (Gdk && typeof Gdk.pixbuf_get_from_surface !== 'function')
        Gdk = null;

    const allowed = (metadata['allowed-executables'] ?? []).filter(p => typeof p === 'string' && p.startsWith('/'));
    const hotKeys = Object.assign({}, DEFAULT_HOT_KEYS, metadata['hot-keys'] ?? {});
    const shellPid = new Gio.Credentials().get_unix_pid();

    // Mutter's windows less the shell's own: on XWayland the shell keeps a
    // 1x1 override-redirect window at (-200, -200) titled "gnome-shell".
    function isListable(win) {
        return win.get_pid() !== shellPid;
    }

    function makeClip(x, y, width, height) {
        // Mutter 45+ takes an Mtk.Rectangle, earlier versions a cairo one.
        if (Mtk)
            return new Mtk.Rectangle({x, y, width, height});
        return new cairo.RectangleInt({x, y, width, height});
    }

    function describeWindow(win, stackIndex) {
        const tracker = Shell.WindowTracker.get_default();
        const app = tracker.get_window_app(win);
        let iconName = null;
        if (app) {
            const icon = app.get_app_info()?.get_icon() ?? app.get_icon?.();
            iconName = icon ? icon.to_string() : null;
        }
        const ws = win.get_workspace();
        const actor = win.get_compositor_private();
        return {
            id: win.get_id(),
            stackIndex, // 0 = bottom
            frame: rectObject(win.get_frame_rect()),
            buffer: rectObject(win.get_buffer_rect()),
            title: win.get_title(),
            wmClass: win.get_wm_class(),
            wmClassInstance: win.get_wm_class_instance(),
            gtkApplicationId: win.get_gtk_application_id(),
            sandboxedAppId: win.get_sandboxed_app_id(),
            pid: win.get_pid(),
            clientType: enumName(Meta.WindowClientType, win.get_client_type()),
            description: win.get_description(),
            windowType: enumName(Meta.WindowType, win.get_window_type()),
            layer: enumName(Meta.StackLayer, win.get_layer()),
            minimized: win.minimized,
            hidden: win.is_hidden(),
            showingOnItsWorkspace: win.showing_on_its_workspace(),
            workspace: ws ? ws.index() : -1,
            onAllWorkspaces: win.is_on_all_workspaces(),
            onActiveWorkspace: win.located_on_workspace(global.workspace_manager.get_active_workspace()),
            monitor: win.get_monitor(),
            focused: win.has_focus(),
            skipTaskbar: win.is_skip_taskbar(),
            above: win.is_above(),
            fullscreen: win.is_fullscreen(),
            maximized: win.get_maximized(),
            overrideRedirect: win.is_override_redirect(),
            opacity: actor ? actor.opacity : 255,
            hasPicture: hasPicture(actor),
            app: app ? {id: app.get_id(), name: app.get_name(), icon: iconName} : null,
        };
    }

    function listWindows() {
        const display = global.display;
        const all = global.get_window_actors().map(a => a.meta_window).filter(w => w);
        const stacked = display.sort_windows_by_stacking(all); // bottom to top
        const windows = [], skipped = [];
        stacked.forEach((w, i) => {
            (isListable(w) ? windows : skipped).push(describeWindow(w, i));
        });
        windows.reverse(); // frontmost first
        // Pictures come at the monitor's scale only in the logical layout
        // (Wayland with scale-monitor-framebuffer); in the physical layout
        // the coordinates are pixels already, whatever the monitor's scale.
        const logical = Meta.is_wayland_compositor() &&
            new Gio.Settings({schema_id: 'org.gnome.mutter'}).get_strv('experimental-features')
                .includes('scale-monitor-framebuffer');
        const monitors = [];
        for (let i = 0; i < display.get_n_monitors(); i++) {
            monitors.push(Object.assign({index: i, scale: logical ? display.get_monitor_scale(i) : 1,
                monitorScale: display.get_monitor_scale(i),
                primary: i === display.get_primary_monitor()}, rectObject(display.get_monitor_geometry(i))));
        }
        const focus = display.get_focus_window();
        return {
            api: API_VERSION,
            x11Display: GLib.getenv('DISPLAY'),
            activeWorkspace: global.workspace_manager.get_active_workspace_index(),
            overviewVisible: Main.overview.visible,
            locked: Main.sessionMode.isLocked,
            focusWindow: focus ? focus.get_id() : null,
            monitors,
            windows,
            skipped,
        };
    }

    // get_image on a window whose first buffer has not arrived yet (an X
    // client just mapped) dereferences a missing texture and takes the whole
    // shell down with it: never ask for those.
    function hasPicture(actor) {
        if (!actor || actor.is_destroyed())
            return false;
        const stex = actor.get_texture();
        return Boolean(stex && stex.get_texture());
    }

    function findActor(id) {
        return global.get_window_actors().find(a => a.meta_window && a.meta_window.get_id() === id) ?? null;
    }

    function writeAll(fd, bytes) {
        // The caller passes a regular file (memfd); writes go where its
        // offset stands, and we report each picture's offset in the reply.
        const out = new UnixOutputStream({fd, close_fd: false});
        let done = 0;
        const size = bytes.get_size();
        while (done < size) {
            const part = done === 0 ? bytes : GLib.Bytes.new_from_bytes(bytes, done, size - done);
            done += out.write_bytes(part, null);
        }
        return size;
    }

    function pngBytes(surface) {
        // No Gdk to read the pixels with: let cairo write a PNG into a private
        // file and hand its bytes on.
        const [fd, path] = GLib.file_open_tmp('plenavue-XXXXXX.png');
        GLib.close(fd);
        try {
            surface.writeToPNG(path);
            return new GLib.Bytes(GLib.file_get_contents(path)[1]);
        } finally {
            GLib.unlink(path);
        }
    }

    function capture(ids, frameOnly, options, fd) {
        const forcePng = options.encoding?.deep_unpack?.() === 'png';
        let offset = 0;
        const results = [];
        for (const id of ids) {
            const started = GLib.get_monotonic_time();
            const actor = findActor(id);
            if (!actor) {
                results.push({id, error: 'gone'});
                continue;
            }
            if (!hasPicture(actor)) {
                results.push({id, error: 'not-ready'});
                continue;
            }
            const win = actor.meta_window;
            const frame = win.get_frame_rect();
            const buffer = win.get_buffer_rect();
            let placed = buffer;
            let clip = null;
            if (frameOnly) {
                // The frame within the buffer, cut to the buffer's own area.
                const x = Math.max(frame.x, buffer.x), y = Math.max(frame.y, buffer.y);
                const r = Math.min(frame.x + frame.width, buffer.x + buffer.width);
                const b = Math.min(frame.y + frame.height, buffer.y + buffer.height);
                if (r <= x || b <= y) {
                    results.push({id, error: 'empty'});
                    continue;
                }
                placed = {x, y, width: r - x, height: b - y};
                clip = makeClip(x - buffer.x, y - buffer.y, r - x, b - y);
            }
            const surface = actor.get_image(clip);
            if (!surface) {
                results.push({id, error: 'no-image'});
                continue;
            }
            const width = surface.getWidth(), height = surface.getHeight();
            let entry;
            if (Gdk && !forcePng) {
                const pixbuf = Gdk.pixbuf_get_from_surface(surface, 0, 0, width, height);
                const bytes = pixbuf.read_pixel_bytes();
                const size = writeAll(fd, bytes);
                entry = {encoding: 'raw', format: pixbuf.get_has_alpha() ? 'RGBA8888' : 'RGB888',
                    alpha: 'straight', stride: pixbuf.get_rowstride(), offset, size};
                offset += size;
            } else {
                const size = writeAll(fd, pngBytes(surface));
                entry = {encoding: 'png', offset, size};
                offset += size;
            }
            results.push(Object.assign({id, width, height, logical: rectObject(placed),
                scale: width / placed.width, micros: GLib.get_monotonic_time() - started}, entry));
        }
        return {windows: results};
    }

    function captureDesktop(fd) {
        return new Promise((resolve, reject) => {
            const out = new UnixOutputStream({fd, close_fd: false});
            const shot = new Shell.Screenshot();
            shot.screenshot(false, out, (obj, res) => {
                try {
                    const [, area] = obj.screenshot_finish(res);
                    resolve({encoding: 'png', logical: rectObject(area)});
                } catch (e) {
                    reject(e);
                }
            });
        });
    }

    async function callerAllowed(invocation) {
        const conn = invocation.get_connection();
        const sender = invocation.get_sender();
        const reply = await new Promise((resolve, reject) => {
            conn.call('org.freedesktop.DBus', '/org/freedesktop/DBus', 'org.freedesktop.DBus',
                'GetConnectionUnixProcessID', new GLib.Variant('(s)', [sender]), new GLib.VariantType('(u)'),
                Gio.DBusCallFlags.NONE, -1, null, (c, res) => {
                    try {
                        resolve(c.call_finish(res));
                    } catch (e) {
                        reject(e);
                    }
                });
        });
        const [pid] = reply.deep_unpack();
        let exe;
        try {
            exe = GLib.file_read_link(`/proc/${pid}/exe`);
        } catch (e) {
            return [false, `cannot read the executable of process ${pid}`];
        }
        // A program updated while it runs shows its old file as deleted.
        exe = exe.replace(/ \(deleted\)$/, '');
        if (allowed.includes(exe))
            return [true, exe];
        return [false, `${exe} is not allowed to read windows (allowed: ${allowed.join(', ') || 'none'})`];
    }

    class Service {
        constructor() {
            this._impl = Gio.DBusExportedObject.wrapJSObject(INTERFACE_XML, this);
            this._grabbed = new Map(); // action number -> name
            this._hotKeyState = {};
            this._ownerId = 0;
            this._startupId = 0;
        }

        start() {
            this._impl.export(Gio.DBus.session, OBJECT_PATH);
            this._grabHotKeys();
            // Take the name only once the shell has finished starting, so that
            // its appearance on the bus means "ready".
            if (Main.layoutManager._startingUp) {
                this._startupId = Main.layoutManager.connect('startup-complete', () => {
                    Main.layoutManager.disconnect(this._startupId);
                    this._startupId = 0;
                    this._ownName();
                });
            } else {
                this._ownName();
            }
        }

        stop() {
            if (this._startupId)
                Main.layoutManager.disconnect(this._startupId);
            this._startupId = 0;
            if (this._ownerId)
                Gio.bus_unown_name(this._ownerId);
            this._ownerId = 0;
            this._ungrabHotKeys();
            this._impl.unexport();
        }

        _ownName() {
            this._ownerId = Gio.bus_own_name_on_connection(Gio.DBus.session, BUS_NAME,
                Gio.BusNameOwnerFlags.NONE, null, null);
        }

        _grabHotKeys() {
            for (const [name, accel] of Object.entries(hotKeys)) {
                const action = global.display.grab_accelerator(accel, Meta.KeyBindingFlags.IGNORE_AUTOREPEAT);
                if (action === Meta.KeyBindingAction.NONE) {
                    this._hotKeyState[name] = `taken: ${accel}`;
                    continue;
                }
                Main.wm.allowKeybinding(Meta.external_binding_name_for_action(action),
                    Shell.ActionMode.NORMAL | Shell.ActionMode.OVERVIEW | Shell.ActionMode.POPUP);
                this._grabbed.set(action, name);
                this._hotKeyState[name] = accel;
            }
            this._acceleratorId = global.display.connect('accelerator-activated',
                (display, action, device, timestamp) => {
                    const name = this._grabbed.get(action);
                    if (name)
                        this._forwardHotKey(name, timestamp);
                });
        }

        _ungrabHotKeys() {
            if (this._acceleratorId)
                global.display.disconnect(this._acceleratorId);
            this._acceleratorId = 0;
            for (const action of this._grabbed.keys()) {
                Main.wm.allowKeybinding(Meta.external_binding_name_for_action(action), Shell.ActionMode.NONE);
                global.display.ungrab_accelerator(action);
            }
            this._grabbed.clear();
        }

        _forwardHotKey(name, timestamp) {
            Gio.DBus.session.call(APP_BUS_NAME, APP_OBJECT_PATH, APP_INTERFACE, 'HotKey',
                new GLib.Variant('(su)', [name, timestamp]), null, Gio.DBusCallFlags.NO_AUTO_START, 2000, null,
                (conn, res) => {
                    try {
                        conn.call_finish(res);
                    } catch (e) {
                        log(`plenavue: hot key ${name} not delivered: ${e.message}`);
                    }
                });
        }

        get ApiVersion() {
            return API_VERSION;
        }

        get HotKeys() {
            return this._hotKeyState;
        }

        // Every method checks its caller first; a refused caller gets
        // ERROR_NOT_ALLOWED with the reason.
        _guarded(invocation, work) {
            callerAllowed(invocation).then(async ([ok, why]) => {
                if (!ok) {
                    invocation.return_dbus_error(ERROR_NOT_ALLOWED, why);
                    return;
                }
                const value = await work();
                invocation.return_value(value);
            }).catch(e => {
                logError(e, 'plenavue');
                invocation.return_dbus_error(ERROR_FAILED, String(e?.message ?? e));
            });
        }

        ListWindowsAsync(params, invocation) {
            this._guarded(invocation, () =>
                new GLib.Variant('(s)', [JSON.stringify(listWindows())]));
        }

        CaptureWindowsAsync([ids, frameOnly, options, fdIndex], invocation) {
            this._guarded(invocation, () => {
                const fd = invocation.get_message().get_unix_fd_list().get(fdIndex);
                try {
                    return new GLib.Variant('(s)', [JSON.stringify(capture(ids, frameOnly, options, fd))]);
                } finally {
                    GLib.close(fd);
                }
            });
        }

        CaptureDesktopAsync([fdIndex], invocation) {
            this._guarded(invocation, async () => {
                const fd = invocation.get_message().get_unix_fd_list().get(fdIndex);
                try {
                    return new GLib.Variant('(s)', [JSON.stringify(await captureDesktop(fd))]);
                } finally {
                    GLib.close(fd);
                }
            });
        }

        ActivateWindowAsync([id], invocation) {
            this._guarded(invocation, () => {
                const actor = findActor(id);
                if (!actor)
                    throw new Error(`no window ${id}`);
                Main.activateWindow(actor.meta_window);
                return null;
            });
        }
    }

    return new Service();
}
