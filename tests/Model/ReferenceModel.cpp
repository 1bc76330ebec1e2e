#include "Model/ReferenceModel.h"

#include <algorithm>
#include <bit>

namespace model {

ReferenceModel::ReferenceModel(bool commonInterface) : commonInterface_(commonInterface) {
   for (auto& p : present_) p.push_back(0);
   touch();
}

Member ReferenceModel::memberFor(const Via& v) const {
   Member m;
   if (v.drop) {
      m.underlay.kind = UnderlayRef::Kind::dropPlaceholder;
      return m;
   }
   m.key = v.key;
   m.resolved = true;
   if (auto it = underlay_.find(v.adj); it != underlay_.end()) {
      m.underlay.kind = UnderlayRef::Kind::group;
      m.underlay.adj = v.adj;
      m.underlay.incarnation = it->second.incarnation;
   }
   return m;
}

void ReferenceModel::program(uint32_t group, const std::vector<Via>& vias) {
   BlockId block;
   for (const Via& v : vias) {
      for (uint32_t w = 0; w < v.weight; ++w) block.push_back(memberFor(v));
      if (v.drop || !v.weight) continue;
      ttl_[v.key] = uint8_t(v.ttl & 0xFF);
      if (commonInterface_) committed_ |= 1u << v.key;
   }
   groups_[group] = vias;
   blockOf_[group] = std::move(block);
   touch();
}

void ReferenceModel::release(uint32_t group) {
   groups_.erase(group);
   blockOf_.erase(group);
   touch();
}

void ReferenceModel::underlayAdd(uint32_t adj, bool inProgress) {
   auto [it, fresh] = underlay_.try_emplace(adj);
   if (fresh) it->second.incarnation = ++incarnations_;
   it->second.ready = !inProgress;
}

void ReferenceModel::underlayReady(uint32_t adj) {
   if (auto it = underlay_.find(adj); it != underlay_.end()) it->second.ready = true;
}

std::vector<uint32_t> ReferenceModel::underlayDel(uint32_t adj) {
   underlay_.erase(adj);
   std::vector<uint32_t> named;
   for (auto& [g, vias] : groups_)
      if (std::ranges::any_of(vias, [&](const Via& v) { return !v.drop && v.adj == adj; }))
         named.push_back(g);
   return named;
}

std::vector<uint32_t> ReferenceModel::restart(uint32_t forgetMask, uint32_t rotation) {
   for (uint32_t g = 0; g < groupCount; ++g)
      if (forgetMask >> g & 1) release(g);
   committed_ = 0;
   ttl_.clear();
   blockOf_.clear();
   std::vector<uint32_t> order;
   for (auto& [g, vias] : groups_) order.push_back(g);
   if (!order.empty())
      std::rotate(order.begin(), order.begin() + rotation % order.size(), order.end());
   return order;
}

void ReferenceModel::uncommit(uint32_t key) {
   committed_ &= key >= keyCount ? 0 : ~(1u << key);
   touch();
}

KeyMask ReferenceModel::keys(Table t) const {
   KeyMask nextHops = 0;
   for (auto& [g, vias] : groups_)
      for (const Via& v : vias)
         if (!v.drop && v.weight) nextHops |= 1u << v.key;
   // Interfaces and tunnels: a next hop's, or a commitment's.
   return t == Table::nextHop ? nextHops | 1u << dropKey : nextHops | committed_;
}

uint8_t ReferenceModel::ttl(uint32_t key) const {
   auto it = ttl_.find(key);
   return it == ttl_.end() ? 0 : it->second;
}

std::set<BlockId> ReferenceModel::blocks() const {
   std::set<BlockId> live;
   for (auto& [g, b] : blockOf_) live.insert(b);
   return live;
}

bool ReferenceModel::underlayReady(const UnderlayRef& u) const {
   if (u.kind != UnderlayRef::Kind::group) return true;
   auto it = underlay_.find(u.adj);
   return it != underlay_.end() && it->second.incarnation == u.incarnation && it->second.ready;
}

void ReferenceModel::opBegin(uint32_t op) {
   now_ = op;
   for (uint32_t t = 0; t < tableCount; ++t) {
      present_[t].resize(size_t(op) + 1, 0);
      present_[t][op] = 0;
   }
   touch();
}

void ReferenceModel::touch() {
   for (uint32_t t = 0; t < tableCount; ++t) {
      const KeyMask live = keys(Table(t));
      // A key seen present earlier in this op and gone now may still hold an
      // index until its delete is answered.
      lingering_[t] |= present_[t][now_] & ~live & ~stale_[t];
      present_[t][now_] |= live | lingering_[t] | stale_[t];
   }
   const std::set<BlockId> live = blocks();
   std::erase_if(blockSince_, [&](const auto& b) { return !live.count(b.first); });
   for (auto& b : live) blockSince_.try_emplace(b, now_);
}

void ReferenceModel::quiet() {
   for (uint32_t t = 0; t < tableCount; ++t) lingering_[t] = 0;
}

void ReferenceModel::staleIs(Table t, KeyMask keys) {
   stale_[uint32_t(t)] |= keys;
   touch();
}

void ReferenceModel::reconcile() {
   for (uint32_t t = 0; t < tableCount; ++t) {
      lingering_[t] |= stale_[t];  // purged rows' deletes may still be in flight
      stale_[t] = 0;
   }
   touch();
}

void ReferenceModel::failWrites(HwTable t) {
   auto& w = failures_[t];
   if (w.empty() || w.back().second != open) w.emplace_back(now_, open);
}

void ReferenceModel::stopFailing(HwTable t) {
   auto it = failures_.find(t);
   if (it != failures_.end() && !it->second.empty() && it->second.back().second == open)
      it->second.back().second = now_;
}

void ReferenceModel::stopFailingAll() {
   for (auto& [t, w] : failures_) stopFailing(t);
}

uint32_t ReferenceModel::presentSince(Table t, uint32_t key) const {
   const auto& p = present_[uint32_t(t)];
   uint32_t s = now_;
   while (s > 0 && (p[s - 1] >> key & 1)) --s;
   return s;
}

uint32_t ReferenceModel::presentCount(Table t, uint32_t since) const {
   KeyMask any = 0;
   const auto& p = present_[uint32_t(t)];
   for (uint32_t s = since; s <= now_ && s < p.size(); ++s) any |= p[s];
   return uint32_t(std::popcount(any));
}

bool ReferenceModel::failureWindow(HwTable t, uint32_t since) const {
   auto it = failures_.find(t);
   return it != failures_.end() &&
          std::ranges::any_of(it->second, [&](const auto& w) { return w.second >= since; });
}

uint32_t ReferenceModel::blockSince(const BlockId& b) const {
   auto it = blockSince_.find(b);
   return it == blockSince_.end() ? now_ : it->second;
}

}  // namespace model
