#!/usr/bin/env gjs
// A GTK window with its own content, a banner docked at its bottom and a button that shows an
// interstitial over the window. Usage: gjs banner.js [bid URL] [--quit-after N]
imports.gi.versions.Gtk = '3.0';
imports.gi.versions.Zorva = '1.0';
const {GLib, Gtk, Zorva} = imports.gi;

// null: the SDK's own endpoint.
const server = ARGV.length > 0 && !ARGV[0].startsWith('-') ? ARGV[0] : null;

Gtk.init(null);
const window = new Gtk.Window({title: 'Zorva from JavaScript', default_width: 600, default_height: 400});
window.connect('destroy', () => Gtk.main_quit());
const box = new Gtk.Box({orientation: Gtk.Orientation.VERTICAL});
const button = new Gtk.Button({label: 'Show interstitial'});
box.pack_start(button, false, false, 0);
box.pack_start(new Gtk.Label({label: "The app's own content"}), true, true, 0);

// The banner asks for its ad's size; the box gives it its own row at the bottom.
const banner = Zorva.Banner.new('my-publisher-id', 'banner', 320, 50);
banner.server_url = server;
banner.connect('loaded', () => print('banner: ad received'));
banner.connect('failed', (_banner, error) => print(`banner: no ad (${error.message})`));
box.pack_end(banner, false, false, 0);
window.add(box);

let interstitial = null; // kept until the next press
button.connect('clicked', () => {
    interstitial = Zorva.Interstitial.new('my-publisher-id', 'interstitial');
    interstitial.server_url = server;
    interstitial.connect('loaded', ad => ad.show(window));
    interstitial.connect('failed', () => button.set_sensitive(true));
    interstitial.connect('dismissed', () => button.set_sensitive(true));
    button.set_sensitive(false);
    interstitial.load();
});

window.show_all();
banner.load();
const quitAfter = ARGV.indexOf('--quit-after');
if (quitAfter >= 0) {
    GLib.timeout_add_seconds(GLib.PRIORITY_DEFAULT, Number(ARGV[quitAfter + 1]), () => {
        Gtk.main_quit();
        return GLib.SOURCE_REMOVE;
    });
}
Gtk.main();
