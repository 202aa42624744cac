#include <gtk/gtk.h>
#include <signal.h>

#include <iostream>
#include <vector>

#include "SampleSubtitle.h"
#include "app/CommandLine.h"
#include "app/Controller.h"
#include "gtk/GtkShell.h"
#include "gtk/SessionBus.h"
#include "program/Program.h"
#include "ui/DesktopTexts.h"

namespace {

// One bar a user: a second launch is handed to the first.
constexpr const char* kApplicationId = "io.lumerix.Lumerix";

int runBar(const lumerix::CommandLine& cl) {
  using namespace lumerix;
  gtk::ShellOptions options;
  options.demo = cl.demo;
  options.demoSample = kSampleSubtitle;
  options.player = cl.player;
  options.listen = cl.listen;
  options.backend = gtk::chooseBackend();
  // The bar draws with Cairo alone: GDK need not load an OpenGL driver,
  // which costs tens of megabytes (LLVM, where Mesa renders in software).
  g_setenv("GDK_GL", "disable", FALSE);
  const gtk::BusFacts buses = gtk::probeBuses();
  // GTK's accessibility bridge warns on every start when it has no bus to
  // talk to; with none, it could do nothing anyway.
  if (!buses.accessibility) g_setenv("NO_AT_BRIDGE", "1", TRUE);
  if (!gtk_init_check(nullptr, nullptr)) {
    std::cerr << texts::desktop::noDisplay << '\n';
    return 2;
  }
  // Without a tray host the tray library falls back to an X11 tray icon,
  // which a Wayland display cannot show (GTK complains on every start).
  options.tray = buses.session && (buses.trayHost || gtk::barKind() == gtk::BarKind::x11Popup);
  if (auto note = missingStartupFileNote(cl.file)) std::cerr << *note << '\n';
  if (!buses.session) std::cerr << texts::desktop::noSessionBus << '\n';
  // A reader of our output that goes away must not kill us mid-save.
  ::signal(SIGPIPE, SIG_IGN);

  // The demo is a bar of its own, beside a real one if that runs.
  auto app =
      Gtk::Application::create(kApplicationId, cl.demo ? Gio::APPLICATION_NON_UNIQUE : Gio::APPLICATION_HANDLES_OPEN);
  std::unique_ptr<gtk::GtkShell> shell;
  app->signal_activate().connect([&] {
    if (!shell) {
      shell = std::make_unique<gtk::GtkShell>(*app.get(), options);
    } else {
      shell->present();
    }
  });
  app->signal_open().connect([&](const Gio::Application::type_vec_files& files, const Glib::ustring&) {
    const std::string path = files.empty() ? std::string() : files.front()->get_path();
    if (!shell) {
      options.subtitle = startupSubtitlePath({"lumerix", path});
      shell = std::make_unique<gtk::GtkShell>(*app.get(), options);
    } else if (!path.empty()) {
      shell->open(path);
    }
  });
  // Only the file reaches GApplication (which hands it to a running bar);
  // our own options are read already.
  std::vector<std::string> args{"lumerix"};
  if (!cl.file.empty()) args.insert(args.end(), {"--", cl.file});
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const int status = app->run(static_cast<int>(args.size()), argv.data());
  shell.reset();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  return lumerix::runProgram(argc, argv, kSampleSubtitle, runBar);
}
