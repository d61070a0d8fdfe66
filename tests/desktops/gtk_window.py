#!/usr/bin/python3
"""A still GTK window for the desktop matrix.

usage: gtk_window.py KIND TITLE X Y WIDTH HEIGHT
  gtk3, gtk4  a window with a header bar (client-side decorations)
  dock        a GTK3 panel (type hint dock)
  popup       a GTK3 override-redirect pop-up menu window
Nothing in it animates; it runs until it is killed.
"""
import sys

import gi

kind, title = sys.argv[1], sys.argv[2]
x, y, width, height = (int(v) for v in sys.argv[3:7])
gi.require_version("Gtk", "4.0" if kind == "gtk4" else "3.0")
from gi.repository import Gio, Gtk  # noqa: E402

if kind == "gtk4":
    app = Gtk.Application(flags=Gio.ApplicationFlags.NON_UNIQUE)

    def activate(application):
        window = Gtk.ApplicationWindow(application=application, title=title)
        window.set_titlebar(Gtk.HeaderBar())
        window.set_default_size(width, height)
        window.set_child(Gtk.Label(label="GTK 4 " + title))
        window.present()

    app.connect("activate", activate)
    app.run([])
    sys.exit(0)

from gi.repository import Gdk  # noqa: E402

if kind == "gtk3":
    window = Gtk.Window(title=title)
    bar = Gtk.HeaderBar(title=title, show_close_button=True)
    window.set_titlebar(bar)
else:
    popup = kind == "popup"
    window = Gtk.Window(type=Gtk.WindowType.POPUP if popup else Gtk.WindowType.TOPLEVEL, title=title)
    window.set_type_hint(Gdk.WindowTypeHint.POPUP_MENU if popup else Gdk.WindowTypeHint.DOCK)
window.set_default_size(width, height)
window.move(x, y)
window.add(Gtk.Label(label="GTK 3 " + title))
window.connect("destroy", Gtk.main_quit)
window.show_all()
Gtk.main()
