#pragma once
// The state directory of --state-dir: made when missing, and locked for the
// whole run (flock on DIR/lock, which holds the holder's pid), so that two
// runs never read and save the chip over each other.
#include <string>

namespace L3TunnelTool {

// Why a state directory cannot be used, in one line naming it.
struct StateDirError {
   std::string what;
   bool busy;  // another run holds it
};

class StateDir {
public:
   // Makes `dir` when missing and takes its lock without waiting; throws
   // StateDirError. Then removes the temporary files of saves that never
   // finished (chip.state.tmp.*): whoever wrote them no longer runs.
   explicit StateDir(std::string dir);
   ~StateDir();  // lets the lock go
   StateDir(const StateDir&) = delete;
   StateDir& operator=(const StateDir&) = delete;

   const std::string& statePath() const { return statePath_; }
   // Whether anything is at the state file's path, a dangling link included:
   // it is then to be loaded, and refused when it cannot be.
   bool stateExists() const;

private:
   std::string dir_;
   std::string statePath_;
   int lockFd_ = -1;
};

}  // namespace L3TunnelTool
