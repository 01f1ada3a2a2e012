// The same in a GLib main loop, as GTK applications have one: glib [SOURCE].

#include <chrono>
#include <iostream>

#include <brenloft.hpp>
#include <glib-unix.h>

struct Application {
  brenloft::Search search;
  GMainLoop* loop;
};

// Takes some of what there is, and gives the loop its turn again.
gboolean takeEvents(gint, GIOCondition, gpointer data) {
  auto& [search, loop] = *static_cast<Application*>(data);
  for (int i = 0; i < 100; ++i) {
    const auto event = search.next(std::chrono::milliseconds(0));
    if (!event) break;
    if (const auto* reading = event->reading()) std::cout << reading->id << '\n';
  }
  if (!search.hasEnded()) return G_SOURCE_CONTINUE;
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

int main(int argc, char** argv) {
  auto search = brenloft::Search::start({.source = argc > 1 ? argv[1] : "auto"});
  if (!search) {
    std::cerr << search.error().text << '\n';
    return 1;
  }
  Application application{*std::move(search), g_main_loop_new(nullptr, FALSE)};
  g_unix_fd_add(application.search.fileDescriptor(), G_IO_IN, takeEvents, &application);
  g_main_loop_run(application.loop);
  g_main_loop_unref(application.loop);
}
