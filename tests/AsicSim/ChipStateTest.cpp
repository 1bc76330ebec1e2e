// The chip's rows kept across processes: what is saved reads back whole, and
// a damaged or foreign file is refused without touching the chip.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "AsicSim/Chip.h"
#include "MeridL3Tunnel/L3TunnelKey.h"
#include "SharedL3/L3EcmpMember0Table.h"
#include "support/Refusal.h"

namespace test {
namespace {

using MeridL3Tunnel::L3TunnelKey;

class ChipState : public ::testing::Test {
protected:
   void SetUp() override {
      dir = std::filesystem::temp_directory_path() /
            ("chip-state-" + std::to_string(::getpid()) + "-" +
             ::testing::UnitTest::GetInstance()->current_test_info()->name());
      std::filesystem::create_directories(dir);
      path = (dir / "chip.state").string();
      chip = Brio::makePtr<AsicSim::Chip>();
      auto tunnels = chip->tableIs("MeridL3Tunnel::L3EgrL3Ipv4TunnelTable", 511, 8);
      tunnels->rowTextIs(1, "Value('x', ** {'ttl': 64})");
      tunnels->rowKeyIs(1, Orb::GenericValue::of(L3TunnelKey(Wire::IpGenAddr("10.0.0.1"),
                                                             Wire::IpGenAddr("2001:db8::2"))));
      auto members = chip->tableIs("MeridL3Tunnel::L3EcmpMember0Table", 511, 4);
      members->rowTextIs(3, "row with blanks, 'quotes' and 12:colons");
      members->rowKeyIs(3,
                        Orb::GenericValue::of(MeridL3Tunnel::L3EcmpMember0Table::RowKey(3, 2, 2)));
      members->rowTextIs(0, "a row without a key");
   }
   void TearDown() override { std::filesystem::remove_all(dir); }

   static std::string dump(const AsicSim::Chip& c) {
      std::ostringstream os;
      for (auto& name : c.tableNames()) {
         auto t = c.table(name, 511);
         os << name << " " << t->numEntries() << "\n";
         for (Asic::Index i = 0; i < t->numEntries(); ++i)
            if (t->row(i))
               os << i << " " << *t->row(i) << " | " << t->rowKey(i).text() << " "
                  << (t->rowKey(i) ? t->rowKey(i).type().name() : "") << "\n";
      }
      return os.str();
   }
   std::string fileText() const {
      std::ifstream in(path, std::ios::binary);
      std::ostringstream os;
      os << in.rdbuf();
      return os.str();
   }
   void fileIs(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }

   std::filesystem::path dir;
   std::string path;
   Brio::Ptr<AsicSim::Chip> chip;
};

TEST_F(ChipState, SavedRowsAndKeysReadBackWhole) {
   chip->stateSave(path);
   auto other = Brio::makePtr<AsicSim::Chip>();
   other->stateLoad(path);
   EXPECT_EQ(dump(*other), dump(*chip));
   EXPECT_EQ(other->table("MeridL3Tunnel::L3EgrL3Ipv4TunnelTable", 511)->rowKey(1),
             chip->table("MeridL3Tunnel::L3EgrL3Ipv4TunnelTable", 511)->rowKey(1));
   EXPECT_EQ(other->table("MeridL3Tunnel::L3EcmpMember0Table", 511)->stats().writes, 0u);
   // Saving again replaces the file and leaves no temporary one behind.
   chip->table("MeridL3Tunnel::L3EcmpMember0Table", 511)->rowTextIs(2, "new");
   chip->stateSave(path);
   other->stateLoad(path);
   EXPECT_EQ(dump(*other), dump(*chip));
   EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);
}

TEST_F(ChipState, DamagedOrForeignFilesAreRefusedAndTheChipKept) {
   chip->stateSave(path);
   const std::string good = fileText();
   auto flip = [&](size_t at) {
      std::string s = good;
      s[at] ^= 0x20;
      return s;
   };
   struct Case {
      const char* name;
      std::string text;
      const char* message;
   };
   const Case cases[] = {
       {"empty", "", "not a chip state file"},
       {"foreign", "{\"chip\": {}}\n", "not a chip state file"},
       {"newer version", "l3tunnel-chip-state 2\n" + good.substr(good.find('\n') + 1),
        "state file version 2, this program reads version 1"},
       {"cut short", good.substr(0, good.size() / 2), "the file is cut short"},
       {"flipped byte", flip(good.size() / 2), "checksum mismatch"},
       {"text after the end", good + "row 1\n", "text after the end line"},
   };
   auto other = Brio::makePtr<AsicSim::Chip>();
   other->tableIs("kept", 511, 2);
   for (const Case& c : cases) {
      fileIs(c.text);
      const std::string what = refusal<std::runtime_error>([&] { other->stateLoad(path); });
      EXPECT_NE(what.find(path + ": "), std::string::npos) << c.name << ": " << what;
      EXPECT_NE(what.find(c.message), std::string::npos) << c.name << ": " << what;
      EXPECT_EQ(other->tableNames(), std::vector<std::string>{"kept"}) << c.name;
   }
   EXPECT_THROW(other->stateLoad((dir / "missing").string()), std::runtime_error);
}

// Each table within the bound, but not all of them together: refused before
// anything is allocated (a short file once made the loader take gigabytes).
TEST_F(ChipState, RowBoundCoversAllTablesTogether) {
   auto sealed = [](std::string body) {
      uint64_t h = 0xcbf29ce484222325ull;
      for (unsigned char c : body) h = (h ^ c) * 0x100000001b3ull;
      char sum[32];
      std::snprintf(sum, sizeof sum, "%016llx", static_cast<unsigned long long>(h));
      return body + "end " + sum + "\n";
   };
   const std::string head = "l3tunnel-chip-state 1\n";
   fileIs(sealed(head + "table 511 1 1:a\ntable 511 16777216 1:b\n"));
   const std::string what =
       refusal<std::runtime_error>([&] { Brio::makePtr<AsicSim::Chip>()->stateLoad(path); });
   EXPECT_NE(what.find("tables of more than 16777216 rows in all"), std::string::npos) << what;
}

}  // namespace
}  // namespace test
