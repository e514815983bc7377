#!/usr/bin/env python3
"""A GTK window with its own content, a banner docked at its bottom and a button that shows an
interstitial over the window. Usage: banner.py [bid URL] [--quit-after N]"""
import sys

import gi

gi.require_version("Gtk", "3.0")
gi.require_version("Zorva", "1.0")
from gi.repository import GLib, Gtk, Zorva  # noqa: E402

# None: the SDK's own endpoint.
server = sys.argv[1] if len(sys.argv) > 1 and not sys.argv[1].startswith("-") else None


def say(line):
    print(line, flush=True)


window = Gtk.Window(title="Zorva from Python", default_width=600, default_height=400)
window.connect("destroy", Gtk.main_quit)
box = Gtk.Box(orientation=Gtk.Orientation.VERTICAL)
button = Gtk.Button(label="Show interstitial")
box.pack_start(button, False, False, 0)
box.pack_start(Gtk.Label(label="The app's own content"), True, True, 0)

# The banner asks for its ad's size; the box gives it its own row at the bottom.
banner = Zorva.Banner.new("my-publisher-id", "banner", 320, 50)
banner.props.server_url = server
banner.connect("loaded", lambda banner: say("banner: ad received"))
banner.connect("failed", lambda banner, error: say(f"banner: no ad ({error.message})"))
box.pack_end(banner, False, False, 0)
window.add(box)


def show_interstitial(button):
    ad = Zorva.Interstitial.new("my-publisher-id", "interstitial")
    ad.props.server_url = server
    ad.connect("loaded", lambda ad: ad.show(window))
    ad.connect("failed", lambda ad, error: button.set_sensitive(True))
    ad.connect("dismissed", lambda ad: button.set_sensitive(True))
    button.set_sensitive(False)
    button.ad = ad  # kept until the next press
    ad.load()


button.connect("clicked", show_interstitial)
window.show_all()
banner.load()
if "--quit-after" in sys.argv:
    GLib.timeout_add_seconds(int(sys.argv[sys.argv.index("--quit-after") + 1]), Gtk.main_quit)
Gtk.main()
