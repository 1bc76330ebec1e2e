#pragma once
// A mounted hardware table: what a hardware plug-in hands a software table to
// address its rows through.
#include <cstdint>
#include <string>

#include "Asic/Index.h"
#include "Brio/Ptr.h"

#pragma GCC visibility push(default)
namespace Asic {

class HwTable : public Brio::PtrInterface {
public:
   HwTable(std::string name, UnitId unit) : name_(std::move(name)), unit_(unit) {}
   const std::string& name() const { return name_; }
   UnitId unit() const { return unit_; }
   virtual uint32_t numEntries() const = 0;

protected:
   ~HwTable() override = default;

private:
   std::string name_;
   UnitId unit_;
};

// Identifies one hardware operation until its write response arrives; 0 means
// no response will come.
using HwRequestId = uint32_t;
enum class WriteStatus : uint8_t { ok = 0, failed = 1 };

}  // namespace Asic
#pragma GCC visibility pop
