// An application's start: its identity, a typed command line, and a main
// loop that ends when asked to.
#include <norvane/application.hpp>
#include <norvane/cmdline.hpp>
#include <norvane/dispatcher.hpp>

#include <cstdio>

int main(int argc, char** argv) {
  norvane::application_core app(argc, argv);
  app.set_organization_name("example");
  app.set_application_name("greeter");

  norvane::cmdline_parser parser("greeter", "Greets people");
  parser.add_option("t", "times", "How often to greet", 1);
  parser.add_option("l", "loud", "Shout", false);
  parser.add_option("names");
  if (!parser.parse(app.arguments())) {
    return 2;  // the reason went to the library logger
  }

  norvane::signal_dispatcher loop;
  int left = std::stoi(parser.value("times"));
  const char* greeting = parser.value("loud") == "true" ? "HELLO" : "hello";
  while (!app.should_exit()) {
    std::printf("%s %s\n", greeting, parser.count("names") > 0 ? parser.value("names").c_str() : "world");
    if (--left <= 0) {
      loop.delay_event([&app] { app.exit(); });  // runs at the end of this cycle
    }
    loop.update();
  }
  return 0;
}
