// Reports KWin's screens and windows, bottom of the stack first, to the
// program that loaded it, over D-Bus as one JSON text. The program fills in
// __SERVICE__, __PATH__ and __TOKEN__ before it loads the script.
// Runs on KWin 5.27 (api 5) and Plasma 6 (api 6), whose scripting differs.
(function () {
    var service = "__SERVICE__";
    var path = "__PATH__";
    var token = "__TOKEN__";

    function rect(g) {
        return g ? [g.x, g.y, g.width, g.height] : null;
    }

    // Plasma 6 gives the stacking order directly; 5.27 gives each window's
    // place in it.
    var windows = [];
    var api;
    if (workspace.stackingOrder !== undefined) {
        api = 6;
        var s = workspace.stackingOrder;
        for (var i = 0; i < s.length; ++i) windows.push(s[i]);
    } else {
        api = 5;
        var c = workspace.clientList();
        for (var j = 0; j < c.length; ++j) windows.push(c[j]);
        windows.sort(function (a, b) { return a.stackingOrder - b.stackingOrder; });
    }

    // Plasma 6 has output objects with their scale; 5.27 only numbers its
    // screens and knows their areas.
    var screens = [];
    if (api === 6) {
        var outs = workspace.screens;
        for (var o = 0; o < outs.length; ++o)
            screens.push({ name: String(outs[o].name), geometry: rect(outs[o].geometry),
                           scale: outs[o].devicePixelRatio || 1 });
    } else {
        var screenArea = KWin.ScreenArea !== undefined ? KWin.ScreenArea : 7;
        for (var n = 0; n < workspace.numScreens; ++n)
            screens.push({ name: String(n), geometry: rect(workspace.clientArea(screenArea, n, workspace.currentDesktop)),
                           scale: 1 });
    }

    // On the desktop being shown: 5.27 numbers desktops, Plasma 6 gives objects.
    function onCurrentDesktop(w) {
        if (w.onAllDesktops) return true;
        if (api === 5) return w.desktop === workspace.currentDesktop;
        var ds = w.desktops;
        for (var d = 0; d < ds.length; ++d)
            if (ds[d].id === workspace.currentDesktop.id) return true;
        return false;
    }

    var out = [];
    for (var k = 0; k < windows.length; ++k) {
        var w = windows[k];
        if (w.deleted) continue;   // closing, kept only for its animation
        out.push({
            id: String(w.internalId),
            frame: rect(w.frameGeometry),
            buffer: rect(w.bufferGeometry),
            caption: String(w.caption),
            resourceClass: String(w.resourceClass),
            resourceName: String(w.resourceName),
            desktopFileName: String(w.desktopFileName),
            pid: w.pid,
            x11: !!w.windowId,
            dock: !!w.dock,
            desktop: !!w.desktopWindow,
            notification: !!(w.notification || w.criticalNotification),
            onScreenDisplay: !!w.onScreenDisplay,
            popup: !!w.popupWindow,
            minimized: !!w.minimized,
            onCurrentDesktop: onCurrentDesktop(w),
            hidden: !!w.hidden,
            keepAbove: !!w.keepAbove,
            keepBelow: !!w.keepBelow,
            fullScreen: !!w.fullScreen
        });
    }
    callDBus(service, path, "org.plenavue.WindowListSink", "windowList", token,
             JSON.stringify({ api: api, screens: screens, windows: out }));
})();
