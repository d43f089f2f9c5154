// A program of the build as the tests run it: a child process whose stderr
// (its log) and stdout are read through pipes. POSIX only.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace pelarix::testing {

struct Child {
  pid_t pid = -1;
  int log = -1;  // the child's stderr
  int out = -1;  // the child's stdout
};

// Runs program with the arguments, in the test's environment.
Child StartChild(const std::string &program, std::vector<std::string> arguments);
// Waits for the child's end; its exit status and what it logged (and, where
// out is given, what it printed on stdout).
int Finish(const Child &child, std::string *log, std::string *out = nullptr);
// Waits at most timeoutMs for the child's end: its exit status, or -1 if it
// still runs.
int WaitForExit(const Child &child, int timeoutMs);
// True once the child has ended; it stays to be waited for by Finish.
bool HasEnded(const Child &child);
// Reads what the child logs until the text appears or timeoutMs pass.
bool WaitForLog(const Child &child, std::string *log, const std::string &text, int timeoutMs);

}  // namespace pelarix::testing
