// Runs one of the built programs as a process of its own, for what only a
// process shows: signals, a display that is not there, a full standard output.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace boxdim::testing {

// Environment changes for the child: a value sets the variable, nullopt unsets it.
using EnvironmentChanges = std::map<std::string, std::optional<std::string>>;

class ChildProcess {
 public:
  // Starts `argv` with standard output and error going to the given files
  // ("/dev/full" makes every write to standard output fail).
  ChildProcess(const std::vector<std::string>& argv, const EnvironmentChanges& changes,
               const std::string& out_path, const std::string& err_path) {
    std::map<std::string, std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
      const std::string text = *entry;
      const std::size_t equals = text.find('=');
      if (equals != std::string::npos)
        environment[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const auto& [name, value] : changes) {
      if (value) {
        environment[name] = *value;
      } else {
        environment.erase(name);
      }
    }
    std::vector<std::string> env_text;
    for (const auto& [name, value] : environment) env_text.push_back(name + "=" + value);
    std::vector<char*> env_pointers;
    for (std::string& text : env_text) env_pointers.push_back(text.data());
    env_pointers.push_back(nullptr);
    std::vector<std::string> args = argv;
    std::vector<char*> arg_pointers;
    for (std::string& arg : args) arg_pointers.push_back(arg.data());
    arg_pointers.push_back(nullptr);

    pid_ = ::fork();
    if (pid_ == 0) {
      const int out = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int err = ::open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (out < 0 || err < 0 || ::dup2(out, STDOUT_FILENO) < 0 || ::dup2(err, STDERR_FILENO) < 0) {
        ::_exit(126);
      }
      ::execve(arg_pointers[0], arg_pointers.data(), env_pointers.data());
      ::_exit(127);
    }
  }

  ~ChildProcess() {
    if (pid_ > 0 && !status_) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void send(int signal) const { ::kill(pid_, signal); }

  // The exit status (128 + the signal when a signal ended it), or nothing
  // when it is still running after `limit` (then it is killed).
  std::optional<int> wait(std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!status_) {
      int raw = 0;
      const pid_t done = ::waitpid(pid_, &raw, WNOHANG);
      if (done == pid_) {
        status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
      } else if (std::chrono::steady_clock::now() > deadline) {
        return std::nullopt;
      } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
    }
    return status_;
  }

 private:
  pid_t pid_ = -1;
  std::optional<int> status_;
};

inline std::string read_text(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Retries `condition` every 50 ms; false when it still fails after `limit`.
inline bool eventually(const std::function<bool()>& condition, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return true;
}

}  // namespace boxdim::testing
