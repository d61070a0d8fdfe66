# What a desktop shell provides that a bare compositor session lacks, for tests
# of the tray application: a StatusNotifierWatcher with a host (so that Qt
# shows its tray icon over StatusNotifierItem) and a notification server. Each
# notification is printed as "notify: SUMMARY | BODY"; each tray item as
# "item: SERVICE". With --click LABEL, the menu entry of that label of the
# first item is clicked once it is there, as a person would in the tray.
#   /usr/bin/python3 session_services.py [--click LABEL]
# Runs until terminated. Prints "services up" once both names are owned.
import sys
from gi.repository import Gio, GLib

WATCHER = """<node><interface name='org.kde.StatusNotifierWatcher'>
<method name='RegisterStatusNotifierItem'><arg type='s' direction='in'/></method>
<method name='RegisterStatusNotifierHost'><arg type='s' direction='in'/></method>
<property name='RegisteredStatusNotifierItems' type='as' access='read'/>
<property name='IsStatusNotifierHostRegistered' type='b' access='read'/>
<property name='ProtocolVersion' type='i' access='read'/>
<signal name='StatusNotifierItemRegistered'><arg type='s'/></signal>
</interface></node>"""
NOTIFICATIONS = """<node><interface name='org.freedesktop.Notifications'>
<method name='Notify'><arg type='s' direction='in'/><arg type='u' direction='in'/><arg type='s' direction='in'/>
<arg type='s' direction='in'/><arg type='s' direction='in'/><arg type='as' direction='in'/>
<arg type='a{sv}' direction='in'/><arg type='i' direction='in'/><arg type='u' direction='out'/></method>
<method name='GetCapabilities'><arg type='as' direction='out'/></method>
<method name='GetServerInformation'><arg type='s' direction='out'/><arg type='s' direction='out'/>
<arg type='s' direction='out'/><arg type='s' direction='out'/></method>
<method name='CloseNotification'><arg type='u' direction='in'/></method>
</interface></node>"""

click = sys.argv[sys.argv.index("--click") + 1] if "--click" in sys.argv else None
items = []
owned = []
conn = Gio.bus_get_sync(Gio.BusType.SESSION)


def say(text):
    print(text, flush=True)


def call(service, path, iface, method, args, then):
    # Asynchronous: the item may be waiting for a notification we serve meanwhile.
    conn.call(service, path, iface, method, args, None, 0, 5000, None,
              lambda c, result: then(c.call_finish(result).unpack()))


def menu_entries(layout):
    item_id, props, children = layout
    yield item_id, props.get("label", "")
    for child in children:
        yield from menu_entries(child)


def click_entry(service, path):
    def with_menu(reply):
        menu = reply[0]
        call(service, menu, "com.canonical.dbusmenu", "GetLayout", GLib.Variant("(iias)", (0, -1, [])),
             lambda layout: with_layout(menu, layout[1]))

    def with_layout(menu, layout):
        for item_id, label in menu_entries(layout):
            if label.replace("&", "") == click:
                call(service, menu, "com.canonical.dbusmenu", "Event",
                     GLib.Variant("(isvu)", (item_id, "clicked", GLib.Variant("i", 0), 0)),
                     lambda _: say("clicked: " + click))
                return
        say("no menu entry " + click)

    call(service, path, "org.freedesktop.DBus.Properties", "Get",
         GLib.Variant("(ss)", ("org.kde.StatusNotifierItem", "Menu")), with_menu)
    return False


def on_watcher_call(c, sender, path, iface, method, params, inv):
    if method == "RegisterStatusNotifierItem":
        arg = params.unpack()[0]
        service, objpath = (sender, arg) if arg.startswith("/") else (arg, "/StatusNotifierItem")
        items.append(service + objpath)
        inv.return_value(None)
        c.emit_signal(None, "/StatusNotifierWatcher", "org.kde.StatusNotifierWatcher",
                      "StatusNotifierItemRegistered", GLib.Variant("(s)", (service + objpath,)))
        say("item: " + service)
        if click:
            GLib.idle_add(click_entry, service, objpath)
    else:
        inv.return_value(None)


def on_watcher_get(c, sender, path, iface, prop):
    return {"RegisteredStatusNotifierItems": GLib.Variant("as", items),
            "IsStatusNotifierHostRegistered": GLib.Variant("b", True),
            "ProtocolVersion": GLib.Variant("i", 0)}[prop]


def on_notify_call(c, sender, path, iface, method, params, inv):
    if method == "Notify":
        args = params.unpack()
        say("notify: %s | %s" % (args[3], args[4]))
        inv.return_value(GLib.Variant("(u)", (len(owned) + 1,)))
    elif method == "GetCapabilities":
        inv.return_value(GLib.Variant("(as)", (["body"],)))
    elif method == "GetServerInformation":
        inv.return_value(GLib.Variant("(ssss)", ("pv-test", "plenavue", "1", "1.2")))
    else:
        inv.return_value(None)


def on_owned(c, name):
    owned.append(name)
    if len(owned) == 2:
        say("services up")


conn.register_object("/StatusNotifierWatcher", Gio.DBusNodeInfo.new_for_xml(WATCHER).interfaces[0],
                     on_watcher_call, on_watcher_get, None)
conn.register_object("/org/freedesktop/Notifications", Gio.DBusNodeInfo.new_for_xml(NOTIFICATIONS).interfaces[0],
                     on_notify_call, None, None)
for name in ("org.kde.StatusNotifierWatcher", "org.freedesktop.Notifications"):
    Gio.bus_own_name_on_connection(conn, name, 0, on_owned, None)
GLib.MainLoop().run()
