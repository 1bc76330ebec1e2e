#pragma once
// The state-database paths a process mounts at start, gathered before any of
// them is mounted, each with the class that asked for it.
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace Ledger {

class MountGroup {
public:
   struct Mount {
      std::string path;
      std::string owner;  // the type whose information lives there
   };

   void mountIs(std::string_view path, std::string_view owner) {
      for (auto& m : mounts_)
         if (m.path == path) return;
      mounts_.push_back({std::string(path), std::string(owner)});
   }
   bool mounted(std::string_view path) const {
      for (auto& m : mounts_)
         if (m.path == path) return true;
      return false;
   }
   const std::vector<Mount>& mounts() const { return mounts_; }

private:
   std::vector<Mount> mounts_;
};

}  // namespace Ledger
#pragma GCC visibility pop
