"""Unlocks the login keyring of a test session, whose password is a line end, as the login of a user does."""

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

NAME = "org.freedesktop.secrets"
PATH = "/org/freedesktop/secrets"
bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)


def call(interface, method, arguments):
    return bus.call_sync(NAME, PATH, interface, method, arguments, None, Gio.DBusCallFlags.NONE, 5000, None)


# A session belongs to its connection, so both calls go over one.
session = call("org.freedesktop.Secret.Service", "OpenSession",
               GLib.Variant("(sv)", ("plain", GLib.Variant("s", "")))).unpack()[1]
call("org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface", "UnlockWithMasterPassword",
     GLib.Variant("(o(oayays))", (PATH + "/collection/login", (session, b"", b"\n", "text/plain"))))
