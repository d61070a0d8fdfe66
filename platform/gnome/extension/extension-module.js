// Entry point for GNOME Shell 45 and later (ES-module extensions).
import Gio from 'gi://Gio';
import GLib from 'gi://GLib';
import Meta from 'gi://Meta';
import Shell from 'gi://Shell';
import Mtk from 'gi://Mtk';
import cairo from 'gi://cairo';
import * as Main from 'resource:///org/gnome/shell/ui/main.js';
import {Extension} from 'resource:///org/gnome/shell/extensions/extension.js';

import {createService} from './core.js';

async function optional(uri) {
    try {
        return (await import(uri)).default;
    } catch (e) {
        return null;
    }
}

export default class PlenavueExtension extends Extension {
    enable() {
        this._pending = Promise.all([optional('gi://Gdk'), optional('gi://GioUnix')]).then(([Gdk, GioUnix]) => {
            if (this._pending === null)
                return; // disabled meanwhile
            this._service = createService({
                Gio, GLib, Meta, Shell, Main, cairo, Mtk, Gdk, GioUnix, metadata: this.metadata,
            });
            this._service.start();
        });
    }

    disable() {
        this._pending = null;
        this._service?.stop();
        this._service = null;
    }
}
