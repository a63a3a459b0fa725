// Typed events queued during a cycle and delivered together by update().
#include <norvane/dispatcher.hpp>

#include <cstdio>
#include <string>

struct file_saved {
  std::string path;
  long bytes;
};

struct status_bar {
  long total = 0;
  void on_saved(file_saved& event) {
    total += event.bytes;
    std::printf("saved %s (%ld bytes, %ld in all)\n", event.path.c_str(), event.bytes, total);
  }
};

void audit(file_saved& event) { std::printf("audit: %s\n", event.path.c_str()); }

int main() {
  norvane::custom_dispatcher<> events;
  status_bar bar;
  events.sink<file_saved>().connect<&status_bar::on_saved>(bar);
  events.sink<file_saved>().connect<&audit>();

  events.enqueue<file_saved>("a.txt", 120L);  // queued, nothing delivered yet
  events.enqueue(file_saved{"b.txt", 80});
  events.update();                         // both listeners see both events, in order
  events.trigger(file_saved{"c.txt", 1});  // delivered at once
  return bar.total == 201 ? 0 : 1;
}
