#include "child_process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace pelarix::testing {
namespace {

void ReadAll(int fd, std::string *into) {
  char chunk[512];
  for (ssize_t got; (got = read(fd, chunk, sizeof chunk)) > 0;) {
    if (into != nullptr) into->append(chunk, static_cast<size_t>(got));
  }
  close(fd);
}

}  // namespace

Child StartChild(const std::string &program, std::vector<std::string> arguments) {
  int logFds[2];
  int outFds[2];
  EXPECT_EQ(pipe(logFds), 0);
  EXPECT_EQ(pipe(outFds), 0);
  Child child;
  child.pid = fork();
  if (child.pid == 0) {
    dup2(logFds[1], 2);
    dup2(outFds[1], 1);
    close(logFds[0]);
    close(outFds[0]);
    std::vector<char *> argv{const_cast<char *>(program.c_str())};
    for (auto &argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(logFds[1]);
  close(outFds[1]);
  child.log = logFds[0];
  child.out = outFds[0];
  return child;
}

int Finish(const Child &child, std::string *log, std::string *out) {
  int status = 0;
  waitpid(child.pid, &status, 0);
  ReadAll(child.log, log);
  ReadAll(child.out, out);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int WaitForExit(const Child &child, int timeoutMs) {
  for (int waited = 0; waited <= timeoutMs; waited += 10) {
    int status = 0;
    if (waitpid(child.pid, &status, WNOHANG) == child.pid) {
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    usleep(10000);
  }
  return -1;
}

bool HasEnded(const Child &child) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(child.pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == child.pid;
}

bool WaitForLog(const Child &child, std::string *log, const std::string &text, int timeoutMs) {
  for (int waited = 0; log->find(text) == std::string::npos; waited += 20) {
    if (waited > timeoutMs) return false;
    pollfd ready{child.log, POLLIN, 0};
    if (poll(&ready, 1, 20) != 1) continue;
    char chunk[512];
    ssize_t got = read(child.log, chunk, sizeof chunk);
    if (got <= 0) return false;
    log->append(chunk, static_cast<size_t>(got));
  }
  return true;
}

}  // namespace pelarix::testing
