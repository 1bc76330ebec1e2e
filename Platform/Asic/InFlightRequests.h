#pragma once
// The hardware requests a table awaits the responses of, by request id: for
// each, who waits for it (a key, a handle) and whether it deletes a row.
//
// Callers name requests by id only and never see how they are kept, so that
// the ids of a block's rows, which the hardware hands out consecutively, can
// come to share one record.
//
// A tracker of writes only (`HasDeletes` false) keeps no flag: its record is
// no larger than its waiter, as a table awaiting many row writes at once
// makes many records.
#include <cstdint>
#include <optional>
#include <type_traits>
#include <unordered_map>

#include "Asic/HwTable.h"

namespace Asic {

template <class Waiter, bool HasDeletes = true>
class InFlightRequests {
public:
   struct Request {
      Waiter waiter;
      [[no_unique_address]] std::conditional_t<HasDeletes, bool, std::false_type> isDelete{};
   };
   static_assert(HasDeletes || sizeof(Request) == sizeof(Waiter));

   uint32_t requests() const { return uint32_t(request_.size()); }
   // Whether `id` is awaited and writes a row: a delete never answers for a
   // write.
   bool writeInFlight(HwRequestId id) const {
      auto it = request_.find(id);
      return it != request_.end() && !it->second.isDelete;
   }

   // Id 0 is no request: the hardware answers nothing for it.
   void requestIs(HwRequestId id, Waiter waiter, bool isDelete = false) {
      if (!id) return;
      Request r{std::move(waiter)};
      if constexpr (HasDeletes) r.isDelete = isDelete;
      request_.insert_or_assign(id, std::move(r));
   }

   // No longer awaited: answered or forgotten. What was awaited, if it was.
   std::optional<Request> requestDel(HwRequestId id) {
      auto it = request_.find(id);
      if (it == request_.end()) return std::nullopt;
      std::optional<Request> gone(std::move(it->second));
      request_.erase(it);
      return gone;
   }

   // Forgets every request `waiter` waits for.
   void waiterDel(const Waiter& waiter) {
      std::erase_if(request_, [&](const auto& r) { return r.second.waiter == waiter; });
   }

   void requestDelAll() { request_.clear(); }

private:
   std::unordered_map<HwRequestId, Request> request_;
};

}  // namespace Asic
