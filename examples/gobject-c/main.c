/* A GTK window in C with its own content and a banner docked at its bottom, through the Zorva
 * GObject library. Usage: gobject-c [bid URL] [--quit-after N] */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zorva-gobject/zorva.h>

static void on_loaded(ZorvaBanner* banner, gpointer data) {
  (void)banner, (void)data;
  printf("banner: ad received\n");
  fflush(stdout);
}

static void on_failed(ZorvaBanner* banner, GError* error, gpointer data) {
  (void)banner, (void)data;
  printf("banner: no ad (%s)\n", error->message);
  fflush(stdout);
}

static gboolean quit(gpointer data) {
  (void)data;
  gtk_main_quit();
  return G_SOURCE_REMOVE;
}

int main(int argc, char** argv) {
  gtk_init(&argc, &argv);
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(window), "Zorva from C");
  gtk_window_set_default_size(GTK_WINDOW(window), 600, 400);
  g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), NULL);

  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  gtk_box_pack_start(GTK_BOX(box), gtk_label_new("The app's own content"), TRUE, TRUE, 0);
  /* The banner asks for its ad's size; the box gives it its own row at the bottom. */
  GtkWidget* banner = zorva_banner_new("my-publisher-id", "banner", 320, 50);
  if (argc > 1 && argv[1][0] != '-') g_object_set(banner, "server-url", argv[1], NULL);
  g_signal_connect(banner, "loaded", G_CALLBACK(on_loaded), NULL);
  g_signal_connect(banner, "failed", G_CALLBACK(on_failed), NULL);
  gtk_box_pack_end(GTK_BOX(box), banner, FALSE, FALSE, 0);
  gtk_container_add(GTK_CONTAINER(window), box);
  gtk_widget_show_all(window);
  zorva_banner_load(ZORVA_BANNER(banner));

  for (int i = 1; i + 1 < argc; ++i) {
    if (strcmp(argv[i], "--quit-after") == 0) g_timeout_add_seconds(atoi(argv[i + 1]), quit, NULL);
  }
  gtk_main();
  return 0;
}
