#pragma once
// What the tests of the installed l3tunnel share: a private scratch
// directory, running the program with its output caught, and the scenarios
// the sweeps run. No gtest here.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace test {

inline std::string fileText(const std::filesystem::path& p) {
   std::ifstream in(p, std::ios::binary);
   std::ostringstream s;
   s << in.rdbuf();
   return s.str();
}

// A fresh directory under TMPDIR (or /tmp), removed with everything in it.
struct ScratchDir {
   explicit ScratchDir(const std::string& prefix) {
      const char* tmp = std::getenv("TMPDIR");
      std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + prefix + "-XXXXXX";
      if (mkdtemp(pattern.data())) path = pattern;
   }
   ~ScratchDir() {
      if (!path.empty()) std::filesystem::remove_all(path);
   }
   ScratchDir(const ScratchDir&) = delete;
   ScratchDir& operator=(const ScratchDir&) = delete;
   std::filesystem::path path;  // empty when it could not be made
};

struct Outcome {
   int code = -1;  // the exit code, 128 + the signal for a killed program
   std::string out;
   std::string err;
   int64_t peakKb = 0;  // its peak resident size
};

// Runs `argv` (the program first) with `env` added and SIGPIPE as a shell
// leaves it, its output caught in `dir`; `inChild` runs just before the
// program starts (to point its output elsewhere, say).
inline Outcome runProgram(const std::filesystem::path& dir, const std::vector<std::string>& argv,
                          const std::vector<std::pair<std::string, std::string>>& env = {},
                          const std::function<void()>& inChild = {}) {
   const std::filesystem::path out = dir / "stdout", err = dir / "stderr";
   const pid_t pid = fork();
   if (pid == 0) {
      dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
      dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
      for (const auto& [k, v] : env) setenv(k.c_str(), v.c_str(), 1);
      std::signal(SIGPIPE, SIG_DFL);
      if (inChild) inChild();
      std::vector<char*> args;
      for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
      args.push_back(nullptr);
      execv(args[0], args.data());
      _exit(127);
   }
   int status = 0;
   rusage usage{};
   wait4(pid, &status, 0, &usage);
   return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), fileText(out),
           fileText(err), int64_t(usage.ru_maxrss)};
}

// The example scenarios but the deliberately bad one, then every *.json in
// the directories of L3TUNNEL_SWEEP_SCENARIOS (colon-separated), each
// directory's sorted.
inline std::vector<std::string> sweptScenarios(const std::string& examples) {
   std::vector<std::string> dirs{examples};
   if (const char* extra = std::getenv("L3TUNNEL_SWEEP_SCENARIOS")) {
      std::stringstream list(extra);
      for (std::string d; std::getline(list, d, ':');)
         if (!d.empty()) dirs.push_back(d);
   }
   std::vector<std::string> files;
   for (size_t d = 0; d < dirs.size(); ++d) {
      std::vector<std::string> in;
      for (const auto& e : std::filesystem::directory_iterator(dirs[d]))
         if (e.path().extension() == ".json" && (d || e.path().filename() != "bad.json"))
            in.push_back(e.path().string());
      std::sort(in.begin(), in.end());
      files.insert(files.end(), in.begin(), in.end());
   }
   return files;
}

}  // namespace test
