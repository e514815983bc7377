"""The GObject face from Python, through its typelib: a banner packed in a GtkBox loads from the
loopback ad server (its pixels read back from the X server) and an unreachable server fails with
a Zorva.Error. Usage: face.py <zorva-adserver executable>"""
import subprocess
import sys
import time

import gi

gi.require_version("Gdk", "3.0")
gi.require_version("Gtk", "3.0")
gi.require_version("Zorva", "1.0")
from gi.repository import Gdk, GLib, Gtk, Zorva  # noqa: E402

server = subprocess.Popen([sys.argv[1]], stdout=subprocess.PIPE, text=True)
sys.excepthook = lambda *error: (server.kill(), sys.__excepthook__(*error))
url = next(line.split()[-1] for line in server.stdout if line.startswith("bid endpoint:"))
heard = []


def wait_until(condition):
    deadline = time.monotonic() + 20
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError("heard %s" % heard)
        GLib.MainContext.default().iteration(True)


GLib.timeout_add(100, lambda: True)  # wakes the loop to look again


window = Gtk.Window(default_width=400, default_height=300)
box = Gtk.Box(orientation=Gtk.Orientation.VERTICAL)
box.pack_start(Gtk.Label(label="The app's content"), True, True, 0)
banner = Zorva.Banner.new("pub", "banner", 320, 50)
banner.props.server_url = url
banner.connect("loaded", lambda b: heard.append("loaded"))
banner.connect("failed", lambda b, error: heard.append(error))
box.pack_end(banner, False, False, 0)
window.add(box)
window.show_all()
banner.load()


def green_at_banner():
    x, y = banner.get_window().get_origin()[1:]
    allocation = banner.get_child().get_allocation()  # the ad, centred in the banner
    shot = Gdk.pixbuf_get_from_window(Gdk.get_default_root_window(), x + allocation.x + 2,
                                      y + allocation.y + 2, 1, 1)
    return heard and shot.get_pixels()[:3] == b"\x1b\x5e\x20"


wait_until(green_at_banner)
assert heard == ["loaded"], heard

interstitial = Zorva.Interstitial.new("pub", "interstitial")
interstitial.props.server_url = "http://127.0.0.1:1/zorva/servad"
interstitial.connect("failed", lambda ad, error: heard.append(error))
interstitial.load()
wait_until(lambda: len(heard) > 1)
error = heard[1]
assert error.matches(Zorva.error_quark(), Zorva.Error.NETWORK), error
server.terminate()
print("ok")
