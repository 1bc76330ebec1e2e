#include "Follower.h"

#include <optional>

namespace L3TunnelTool {

void KernelFollower::dumpBegin(bool lost) {
   if (started_ && lost) ++resyncs_;
   syncing_ = true;
   mirror_.clear();
}

void KernelFollower::apply(const KernelEvent& e) {
   mirror_.apply(e);
   if (!syncing_) ++changesApplied_;
}

void KernelFollower::dumpEnd(bool startup, const std::function<void()>& meanwhile) {
   program(meanwhile);
   if (startup) {
      agent_.settle();
      Step reconcile;
      reconcile.op = Step::Op::reconcile;
      agent_.stepRun(reconcile);
      agent_.settle();
   }
   syncing_ = false;
   started_ = true;
}

void KernelFollower::adjacencyUsersIs(const std::string& name,
                                      const std::vector<Adjacency>& adjacencies) {
   auto it = groupAdjacencies_.find(name);
   if (it != groupAdjacencies_.end()) {
      for (const auto& a : it->second) {
         auto users = adjacencyUsers_.find(a);
         users->second.erase(name);
         if (users->second.empty()) adjacencyUsers_.erase(users);
      }
      groupAdjacencies_.erase(it);
   }
   if (adjacencies.empty()) return;
   groupAdjacencies_[name] = adjacencies;
   for (const auto& a : adjacencies) adjacencyUsers_[a].insert(name);
}

std::set<Adjacency> KernelFollower::usedAdjacencies() const {
   std::set<Adjacency> used;
   for (const auto& [a, users] : adjacencyUsers_) used.insert(a);
   return used;
}

void KernelFollower::flush() {
   if (!syncing_) program({});
}

void KernelFollower::program(const std::function<void()>& meanwhile) {
   constexpr uint32_t groupsBetweenCalls = 256;
   uint32_t sinceCall = 0;
   std::set<Adjacency> adjacencies = mirror_.dirtyAdjacenciesTake();
   std::map<std::string, std::optional<OverlayGroup>> wanted;
   std::set<Adjacency> wantedAdjacencies;
   for (const auto& name : mirror_.dirtyTake()) {
      auto g = mirror_.group(name);
      if (g) wantedAdjacencies.insert(g->adjacencies.begin(), g->adjacencies.end());
      wanted.emplace(name, std::move(g));
   }
   adjacencies.insert(wantedAdjacencies.begin(), wantedAdjacencies.end());
   // And those the changing groups use now, which may lose their last user.
   for (const auto& [name, g] : wanted)
      if (auto had = groupAdjacencies_.find(name); had != groupAdjacencies_.end())
         adjacencies.insert(had->second.begin(), had->second.end());
   // Whether groups will use the adjacency once this batch is in.
   auto usedAfter = [&](const Adjacency& a) {
      if (wantedAdjacencies.count(a)) return true;
      auto users = adjacencyUsers_.find(a);
      if (users == adjacencyUsers_.end()) return false;
      for (const auto& name : users->second)
         if (!wanted.count(name)) return true;
      return false;
   };

   // Underlay groups first, so that the blocks programmed below name them
   // as they now are; a group whose underlay came or went is programmed again.
   std::set<std::string> forced;
   for (const auto& a : adjacencies) {
      const auto id = ids_.find(a);
      if (!id) continue;
      agent_.underlayNameIs(*id, mirror_.adjacencyName(a));
      const auto key = AdjacencyIds::key(*id);
      const bool want = mirror_.resolved(a) && usedAfter(a);
      if (want == agent_.underlayHas(key)) continue;
      if (want)
         agent_.underlayIs(key, *id);
      else
         agent_.underlayDel(key);
      changed_ = true;
      if (auto users = adjacencyUsers_.find(a); users != adjacencyUsers_.end())
         forced.insert(users->second.begin(), users->second.end());
   }
   for (const auto& name : forced)
      if (!wanted.count(name)) wanted.emplace(name, mirror_.group(name));

   for (auto& [name, g] : wanted) {
      const bool programmed = agent_.groups().count(name) != 0;
      Step step;
      step.group = name;
      if (!g || g->reason) {
         if (programmed) {
            step.op = Step::Op::release;
            agent_.stepRun(step);
            changed_ = true;
         }
         adjacencyUsersIs(name, {});
         if (g)
            agent_.groupNoteIs(name, {g->reason, g->routes});
         else
            agent_.groupNoteDel(name);
         continue;
      }
      agent_.groupNoteIs(name, {std::nullopt, g->routes});
      const auto vias = agent_.groupVias().find(name);
      if (programmed && !forced.count(name) && vias != agent_.groupVias().end() &&
          vias->second == g->vias)
         continue;
      step.op = Step::Op::program;
      step.vias = std::move(g->vias);
      agent_.stepRun(step);
      adjacencyUsersIs(name, g->adjacencies);
      changed_ = true;
      if (meanwhile && ++sinceCall == groupsBetweenCalls) {
         sinceCall = 0;
         agent_.settle();
         meanwhile();
      }
   }
   // Underlay groups nobody uses any more.
   for (const auto& a : adjacencies) {
      const auto id = ids_.find(a);
      if (!id || adjacencyUsers_.count(a)) continue;
      const auto key = AdjacencyIds::key(*id);
      if (!agent_.underlayHas(key)) continue;
      agent_.underlayDel(key);
      changed_ = true;
   }
}

}  // namespace L3TunnelTool
