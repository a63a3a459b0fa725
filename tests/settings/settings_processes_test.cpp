// Two processes sharing one settings file, taking turns.
#include "support/test_support.hpp"

#include <norvane/application.hpp>
#include <norvane/settings.hpp>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

namespace norvane {
namespace {

constexpr int rounds = 20;

struct channel {
  int fds[2] = {-1, -1};
  channel() { EXPECT_EQ(::pipe(fds), 0); }
  ~channel() {
    ::close(fds[0]);
    ::close(fds[1]);
  }
  channel(const channel&) = delete;
  channel& operator=(const channel&) = delete;
  bool send(char c) const { return ::write(fds[1], &c, 1) == 1; }
  char receive() const {
    char c = 0;
    return ::read(fds[0], &c, 1) == 1 ? c : '\0';
  }
};

// One child: keeps a single settings object for its whole life; at each
// turn it sets its key for the round, syncs, and checks that the other
// child's keys so far came in with the merge.
[[noreturn]] void take_turns(const std::string& mine, const std::string& other, bool other_went_first,
                             const channel& go, const channel& done) {
  int code = 0;
  try {
    settings store("shared.json");
    for (int round = 0; round < rounds; ++round) {
      if (go.receive() != 'g') {
        ::_exit(2);
      }
      store.dictionary()[mine + std::to_string(round)] = round;
      store.set_modified();
      store.sync();
      const int other_rounds = other_went_first ? round + 1 : round;
      bool complete = !store.modified();
      for (int r = 0; r < other_rounds; ++r) {
        complete = complete && store.dictionary().value(other + std::to_string(r), -1) == r;
      }
      done.send(complete ? 'k' : 'x');
    }
  } catch (...) {
    code = 3;
  }
  ::_exit(code);
}

TEST(SettingsProcesses, TwoChildrenTakingTurnsKeepEveryKey) {
  std::string program = "tool";
  char* argv[] = {program.data(), nullptr};
  application_core app(1, argv);
  app.set_organization_name("studio");

  channel go_a;
  channel go_b;
  channel done_a;
  channel done_b;
  const pid_t a = ::fork();
  ASSERT_GE(a, 0);
  if (a == 0) {
    take_turns("a", "b", false, go_a, done_a);
  }
  const pid_t b = ::fork();
  ASSERT_GE(b, 0);
  if (b == 0) {
    take_turns("b", "a", true, go_b, done_b);
  }

  // The parent hands out the turns so that no two syncs overlap.
  std::string replies;
  for (int round = 0; round < rounds; ++round) {
    ASSERT_TRUE(go_a.send('g'));
    replies += done_a.receive();
    ASSERT_TRUE(go_b.send('g'));
    replies += done_b.receive();
  }
  int status_a = 0;
  int status_b = 0;
  ASSERT_EQ(::waitpid(a, &status_a, 0), a);
  ASSERT_EQ(::waitpid(b, &status_b, 0), b);
  EXPECT_TRUE(WIFEXITED(status_a) && WEXITSTATUS(status_a) == 0);
  EXPECT_TRUE(WIFEXITED(status_b) && WEXITSTATUS(status_b) == 0);
  EXPECT_EQ(replies, std::string(2 * rounds, 'k'));

  const settings result("shared.json");
  EXPECT_EQ(result.dictionary().size(), static_cast<std::size_t>(2 * rounds));
  for (int round = 0; round < rounds; ++round) {
    EXPECT_EQ(result.dictionary().value("a" + std::to_string(round), -1), round);
    EXPECT_EQ(result.dictionary().value("b" + std::to_string(round), -1), round);
  }
}

}  // namespace
}  // namespace norvane
