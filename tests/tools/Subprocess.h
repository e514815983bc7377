#pragma once

// One of the tools run as a user runs it, with its standard output and error on pipes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

namespace zorva::test {

class Subprocess {
 public:
  Subprocess(const char* program, std::vector<std::string> args) {
    args.insert(args.begin(), program);
    int out[2], err[2];
    EXPECT_EQ(pipe2(out, O_CLOEXEC) | pipe2(err, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    fds_[0] = out[0];
    fds_[1] = err[0];
  }
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;
  ~Subprocess() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(fds_[0]);
    close(fds_[1]);
  }

  /// The next line of standard output, waiting at most 10 s.
  std::string readLine() {
    std::string line;
    char c;
    pollfd fd{fds_[0], POLLIN, 0};
    while (poll(&fd, 1, 10'000) == 1 && read(fds_[0], &c, 1) == 1 && c != '\n') line += c;
    return line;
  }
  /// Reads both outputs to their end (so a full pipe never stalls the program), then returns the
  /// exit status; a program silent for two minutes is taken as hung and killed.
  int finish() {
    std::string* texts[] = {&out, &err};
    pollfd fds[] = {{fds_[0], POLLIN, 0}, {fds_[1], POLLIN, 0}};
    int open = 2;
    while (open > 0 && poll(fds, 2, 120'000) > 0) {
      for (int i = 0; i < 2; ++i) {
        if (fds[i].fd < 0 || !fds[i].revents) continue;
        char buffer[4096];
        const ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
        if (n > 0) {
          texts[i]->append(buffer, n);
        } else {
          fds[i].fd = -1;
          --open;
        }
      }
    }
    if (open > 0) kill(pid_, SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void signal(int number) { kill(pid_, number); }
  std::vector<std::string> outLines() const {
    std::vector<std::string> lines;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  /// Runs `program` with `args` to its end and checks that it refused them: `status`, `message`
  /// on standard error and nothing on standard output.
  static void expectRefused(const char* program, std::vector<std::string> args, int status,
                            const std::string& message) {
    Subprocess tool(program, std::move(args));
    EXPECT_EQ(tool.finish(), status) << message;
    EXPECT_NE(tool.err.find(message), std::string::npos) << tool.err;
    EXPECT_TRUE(tool.out.empty()) << tool.out;
  }

  std::string out, err;

 private:
  pid_t pid_ = 0;
  int fds_[2] = {-1, -1};
};

}  // namespace zorva::test
