// Entry point for GNOME Shell 43 and 44 (imports-style extensions).
/* exported init */

const {Gio, GLib, Meta, Shell} = imports.gi;
const Main = imports.ui.main;
const ExtensionUtils = imports.misc.extensionUtils;
const Me = ExtensionUtils.getCurrentExtension();

function optional(name) {
    try {
        return imports.gi[name];
    } catch (e) {
        return null;
    }
}

class Extension {
    enable() {
        // The shell itself runs with Gdk 3.0 chosen, so this finds it.
        this._service = Me.imports.core.createService({
            Gio, GLib, Meta, Shell, Main, cairo: imports.gi.cairo,
            Gdk: optional('Gdk'), Mtk: optional('Mtk'), metadata: Me.metadata,
        });
        this._service.start();
    }

    disable() {
        this._service?.stop();
        this._service = null;
    }
}

function init() {
    return new Extension();
}
