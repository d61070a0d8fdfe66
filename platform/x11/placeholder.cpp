// placeholder, replaced by the X11 window server
