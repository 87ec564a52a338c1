#!/usr/bin/python3
"""A GTK text field that appends its text to a file as a line of JSON whenever it changes."""

import json
import sys
import time

import gi

gi.require_version("Gtk", "3.0")
from gi.repository import Gtk  # noqa: E402

report, title, kind = sys.argv[1:4]


def write(text):
    with open(report, "a", encoding="utf-8") as file:
        file.write(json.dumps({"monotonic_ms": time.monotonic() * 1000, "text": text}) + "\n")


window = Gtk.Window(title=title)
window.set_default_size(600, 300)
window.connect("destroy", Gtk.main_quit)
if kind == "area":
    field = Gtk.TextView()
    content = field.get_buffer()
    content.connect(
        "changed", lambda b: write(b.get_text(b.get_start_iter(), b.get_end_iter(), True)))
elif kind in ("line", "password"):
    field = Gtk.Entry(visibility=kind == "line")
    field.connect("changed", lambda entry: write(entry.get_text()))
else:
    field = Gtk.Button(label="Continue")
window.add(field)
window.show_all()
field.grab_focus()
Gtk.main()
