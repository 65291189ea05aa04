// SPDX-License-Identifier: MIT

// The adapter, the debug port and the core's debug registers, with a plain memory for a chip.

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "wire/adapter.h"
#include "wire/core.h"
#include "wire/swd.h"

namespace {

using wire::REPORT_SIZE;

// RAM from 0x20000000 on; everything else faults.
class Memory : public wire::Target {
 public:
  const wire::CHIP_IDENTITY& Identity() const override { return Chip; }
  void                       Advance() override {}
  bool                       PortAnswers() const override { return HasPower && !IsClosed; }
  bool                       BusAnswers() const override { return !BusIsClosed; }
  uint32_t                   PowerLosses() const override { return NumPowerLosses; }
  uint32_t                   Resets() const override { return NumResets; }

  bool Read(uint32_t Address, uint32_t Size, uint32_t* pValue) override {
    Accesses.push_back(Size);
    *pValue = Words[Address & ~3u] >> 8 * (Address & 3) & Mask(Size);
    return Address >> 28 == 2;
  }

  bool Write(uint32_t Address, uint32_t Size, uint32_t Value) override {
    Accesses.push_back(Size);
    uint32_t& Word = Words[Address & ~3u];
    Word &= ~(Mask(Size) << 8 * (Address & 3));
    Word |= (Value & Mask(Size)) << 8 * (Address & 3);
    return Address >> 28 == 2;
  }

  uint64_t StallUs() override { return NextStallUs; }
  void     SystemReset(bool HaltCore) override {
    NumResets++;
    Halted = HaltCore;
  }
  void HoldReset() override { NumResets++; }
  void ReleaseReset(bool HaltCore) override { Halted = HaltCore; }
  void SetHalted(bool IsHalted) override { Halted = IsHalted; }
  bool IsHalted() const override { return Halted; }

  wire::CHIP_IDENTITY Chip = {0x2BA01477, 0x24770011, 0x410FC241, 0x413, false, 0xE00FF000};
  std::map<uint32_t, uint32_t> Words;
  std::vector<uint32_t>        Accesses;  // their sizes
  uint64_t                     NextStallUs    = 0;
  uint32_t                     NumPowerLosses = 0;
  uint32_t                     NumResets      = 0;
  bool                         HasPower       = true;
  bool                         IsClosed       = false;
  bool                         BusIsClosed    = false;
  bool                         Halted         = false;

 private:
  static uint32_t Mask(uint32_t Size) { return Size == 4 ? ~0u : (1u << 8 * Size) - 1; }
};

// Requests of a Transfer command: the register with its bits for AP and read.
enum : uint8_t {
  DPIDR_R  = 0x02,
  ABORT_W  = 0x00,
  CTRL_W   = 0x04,
  CTRL_R   = 0x06,
  SELECT_W = 0x08,
  RDBUFF_R = 0x0E,
  CSW_W    = 0x01,
  CSW_R    = 0x03,
  TAR_W    = 0x05,
  TAR_R    = 0x07,
  DRW_W    = 0x0D,
  DRW_R    = 0x0F
};
const uint32_t WORDS = 0x12, HALVES = 0x11, PACKED = 0x22;  // CSW: size and increment
const uint32_t DHCSR = 0xE000EDF0, DEMCR = 0xE000EDFC, AIRCR = 0xE000ED0C;

struct Step {
  uint8_t  Request;
  uint32_t Data = 0;
};

struct Answer {
  int                   Done = -1;
  int                   Ack  = -1;
  std::vector<uint32_t> Words;
};

class WireAdapter : public testing::Test {
 protected:
  explicit WireAdapter(wire::ADAPTER Setup = {}) : Setup_(std::move(Setup)) { Plug(); }

  void Plug() {
    Port_    = std::make_unique<wire::DebugPort>(Chip_, [this] { return NowUs_; });
    Adapter_ = std::make_unique<wire::Adapter>(Setup_, *Port_);
    Execute({0x02, 1});
  }

  // The answer with its zeros; empty when there is none.
  std::vector<uint8_t> Execute(std::vector<uint8_t> Request) {
    uint8_t aAnswer[REPORT_SIZE];
    Request.resize(REPORT_SIZE);
    Length_ = Adapter_->Execute(Request.data(), aAnswer);
    return Length_ > 0 ? std::vector<uint8_t>(aAnswer, aAnswer + Length_) : std::vector<uint8_t>();
  }

  Answer Transfer(const std::vector<Step>& Steps) {
    std::vector<uint8_t> Request = {0x05, 0, static_cast<uint8_t>(Steps.size())};
    for (const Step& Each : Steps) {
      Request.push_back(Each.Request);
      if ((Each.Request & 2) == 0 || (Each.Request & 0x10) != 0) {
        for (int i = 0; i < 4; i++) {
          Request.push_back(static_cast<uint8_t>(Each.Data >> 8 * i));
        }
      }
    }
    const std::vector<uint8_t> Raw = Execute(Request);
    Answer                     Result;
    if (Raw.size() >= 3) {
      Result.Done = Raw[1];
      Result.Ack  = Raw[2];
      for (size_t i = 3; i + 4 <= Raw.size(); i += 4) {
        Result.Words.push_back(Raw[i] | Raw[i + 1] << 8 | Raw[i + 2] << 16 |
                               static_cast<uint32_t>(Raw[i + 3]) << 24);
      }
    }
    return Result;
  }

  // One word by its address.
  uint32_t Peek(uint32_t Address) {
    const Answer Result = Transfer({{CSW_W, WORDS}, {TAR_W, Address}, {DRW_R}});
    EXPECT_EQ(wire::ACK_OK, Result.Ack);
    return Result.Words.empty() ? 0xEEEEEEEE : Result.Words[0];
  }

  void Poke(uint32_t Address, uint32_t Value) {
    EXPECT_EQ(wire::ACK_OK, Transfer({{CSW_W, WORDS}, {TAR_W, Address}, {DRW_W, Value}}).Ack);
  }

  Memory                           Chip_;
  wire::ADAPTER                    Setup_;
  uint64_t                         NowUs_  = 1;
  int                              Length_ = 0;
  std::unique_ptr<wire::DebugPort> Port_;
  std::unique_ptr<wire::Adapter>   Adapter_;
};

// -- Commands ------------------------------------------------------------------------------------

TEST_F(WireAdapter, says_what_it_is) {
  EXPECT_EQ((std::vector<uint8_t>{0x00, 1, 1}), Execute({0x00, 0xF0}));
  EXPECT_EQ((std::vector<uint8_t>{0x00, 2, 64, 0}), Execute({0x00, 0xFF}));
  EXPECT_EQ((std::vector<uint8_t>{0x00, 1, 1}), Execute({0x00, 0xFE}));
  EXPECT_EQ((std::vector<uint8_t>{0x00, 6, '2', '.', '1', '.', '0', 0}), Execute({0x00, 0x04}));
  EXPECT_EQ((std::vector<uint8_t>{0x00, 0}), Execute({0x00, 0x77}));
}

TEST_F(WireAdapter, answers_ff_to_a_command_that_it_does_not_have) {
  EXPECT_EQ((std::vector<uint8_t>{0xFF}), Execute({0x14}));
  EXPECT_EQ((std::vector<uint8_t>{0xFF}), Execute({0x7F, 1}));
}

TEST_F(WireAdapter, has_swd_and_no_jtag) {
  EXPECT_EQ((std::vector<uint8_t>{0x02, 0}), Execute({0x02, 2}));
  EXPECT_EQ(0, Transfer({{DPIDR_R}}).Ack);
  EXPECT_EQ((std::vector<uint8_t>{0x02, 1}), Execute({0x02, 0}));
  EXPECT_EQ(wire::ACK_OK, Transfer({{DPIDR_R}}).Ack);
}

// -- Debug port ----------------------------------------------------------------------------------

TEST_F(WireAdapter, the_debug_port_identifies_itself_and_grants_power) {
  const Answer Result = Transfer({{DPIDR_R}, {CTRL_W, 0x50000000}, {CTRL_R}});
  EXPECT_EQ(3, Result.Done);
  EXPECT_EQ((std::vector<uint32_t>{0x2BA01477, 0xF0000000}), Result.Words);
}

TEST_F(WireAdapter, a_chip_without_power_or_with_a_closed_port_does_not_answer) {
  Chip_.HasPower = false;
  EXPECT_EQ(wire::ACK_NONE, Transfer({{DPIDR_R}}).Ack);
  Chip_.HasPower = true;
  Chip_.IsClosed = true;
  EXPECT_EQ(wire::ACK_NONE, Transfer({{DPIDR_R}}).Ack);
}

TEST_F(WireAdapter, a_closed_bus_faults_and_the_debug_port_answers) {
  Chip_.BusIsClosed = true;
  EXPECT_EQ(wire::ACK_FAULT, Transfer({{CSW_W, WORDS}, {TAR_W, 0xE000ED00}, {DRW_R}}).Ack);
  EXPECT_EQ(wire::ACK_OK, Transfer({{DPIDR_R}}).Ack);
  EXPECT_TRUE(Chip_.Accesses.empty());
}

TEST_F(WireAdapter, power_alone_resets_the_debug_port) {
  Transfer({{CTRL_W, 0x50000000}, {TAR_W, 0x20000010}});
  Chip_.NumResets++;
  EXPECT_EQ((std::vector<uint32_t>{0xF0000000, 0x20000010}), Transfer({{CTRL_R}, {TAR_R}}).Words);
  Chip_.NumPowerLosses++;
  EXPECT_EQ((std::vector<uint32_t>{0, 0}), Transfer({{CTRL_R}, {TAR_R}}).Words);
}

TEST_F(WireAdapter, an_access_port_that_does_not_exist_reads_as_zero) {
  EXPECT_EQ((std::vector<uint32_t>{0x24770011, 0}),
            Transfer({{SELECT_W, 0xF0}, {DRW_R}, {SELECT_W, 0x010000F0}, {DRW_R}}).Words);
}

// -- Accesses ------------------------------------------------------------------------------------

TEST_F(WireAdapter, each_read_of_a_list_answers_its_own_value) {
  Chip_.Words[0x20000000] = 0x11;
  Chip_.Words[0x20000004] = 0x22;
  const Answer Result     = Transfer(
          {{CSW_W, WORDS}, {TAR_W, 0x20000000}, {DRW_R}, {DRW_R}, {CTRL_R}, {DRW_R}, {RDBUFF_R}});
  EXPECT_EQ(7, Result.Done);
  EXPECT_EQ((std::vector<uint32_t>{0x11, 0x22, 0, 0, 0}), Result.Words);
  EXPECT_EQ((std::vector<uint32_t>{4, 4, 4}), Chip_.Accesses);
}

TEST_F(WireAdapter, a_block_is_read_and_written_in_order) {
  Transfer({{CSW_W, WORDS}, {TAR_W, 0x20000000}});
  EXPECT_EQ((std::vector<uint8_t>{0x06, 2, 0, 1}),
            Execute({0x06, 0, 2, 0, 0x0D, 0x11, 0, 0, 0, 0x22, 0, 0, 0}));
  Transfer({{TAR_W, 0x20000000}});
  EXPECT_EQ((std::vector<uint8_t>{0x06, 2, 0, 1, 0x11, 0, 0, 0, 0x22, 0, 0, 0}),
            Execute({0x06, 0, 2, 0, 0x0F}));
}

TEST_F(WireAdapter, half_words_stand_in_their_lanes) {
  Transfer({{CSW_W, HALVES}, {TAR_W, 0x20000000}, {DRW_W, 0xFFFF1111}, {DRW_W, 0x2222FFFF}});
  EXPECT_EQ(0x22221111u, Chip_.Words[0x20000000]);
  EXPECT_EQ((std::vector<uint32_t>{2, 2}), Chip_.Accesses);
  EXPECT_EQ((std::vector<uint32_t>{0x22220000}), Transfer({{TAR_W, 0x20000002}, {DRW_R}}).Words);
}

TEST_F(WireAdapter, packed_transfers_are_refused) {
  EXPECT_EQ(0x2u, Transfer({{CSW_W, PACKED}, {CSW_R}}).Words.at(0) & 0x37);
}

TEST_F(WireAdapter, the_increment_wraps_after_4_kb) {
  Transfer({{CSW_W, WORDS}, {TAR_W, 0x20000FFC}, {DRW_R}});
  EXPECT_EQ((std::vector<uint32_t>{0x20000000}), Transfer({{TAR_R}}).Words);
}

TEST_F(WireAdapter,
       an_access_that_fails_is_told_by_the_one_after_it_and_holds_until_it_is_cleared) {
  const Answer Result = Transfer({{CSW_W, WORDS}, {TAR_W, 0x60000000}, {DRW_R}, {DRW_R}});
  EXPECT_EQ(wire::ACK_FAULT, Result.Ack);
  EXPECT_EQ(3, Result.Done);
  EXPECT_TRUE(Result.Words.empty());
  EXPECT_EQ(wire::ACK_FAULT, Transfer({{TAR_R}}).Ack);
  EXPECT_EQ(0x20u, Transfer({{CTRL_R}}).Words.at(0));
  EXPECT_EQ(wire::ACK_OK, Transfer({{ABORT_W, 0x1E}}).Ack);
  EXPECT_EQ((std::vector<uint32_t>{0x60000000}), Transfer({{TAR_R}}).Words);
  EXPECT_EQ(1u, Chip_.Accesses.size());
}

TEST_F(WireAdapter, a_write_that_fails_is_told_in_its_own_list) {
  EXPECT_EQ(wire::ACK_FAULT, Transfer({{CSW_W, WORDS}, {TAR_W, 0x60000000}, {DRW_W, 1}}).Ack);
}

TEST_F(WireAdapter, an_address_that_is_no_multiple_of_the_size_fails) {
  EXPECT_EQ(wire::ACK_FAULT, Transfer({{CSW_W, WORDS}, {TAR_W, 0x20000002}, {DRW_R}}).Ack);
  EXPECT_TRUE(Chip_.Accesses.empty());
}

// -- Waiting -------------------------------------------------------------------------------------

class WireThatWaits : public WireAdapter {
 protected:
  WireThatWaits() : WireAdapter({"x", false, true, {}}) {}
};

TEST_F(WireThatWaits, a_bus_that_stalls_is_answered_with_wait_until_it_is_over) {
  Chip_.NextStallUs = 1000;
  EXPECT_EQ(wire::ACK_WAIT, Transfer({{CSW_W, WORDS}, {TAR_W, 0x20000000}, {DRW_R}}).Ack);
  EXPECT_EQ(wire::ACK_WAIT, Transfer({{RDBUFF_R}}).Ack);
  EXPECT_EQ(wire::ACK_OK, Transfer({{DPIDR_R}, {CTRL_R}}).Ack);
  NowUs_ += 1000;
  EXPECT_EQ(wire::ACK_OK, Transfer({{RDBUFF_R}}).Ack);
}

TEST_F(WireThatWaits, dapabort_gives_a_stalled_access_up) {
  Chip_.NextStallUs = 1000;
  Transfer({{CSW_W, WORDS}, {TAR_W, 0x20000000}, {DRW_R}});
  Transfer({{ABORT_W, 0x1F}});
  EXPECT_EQ(wire::ACK_OK, Transfer({{RDBUFF_R}}).Ack);
}

// -- Faults --------------------------------------------------------------------------------------

class WireWithFaults : public WireAdapter {
 protected:
  // The first three transfers are good, the fault is at the fourth.
  void Fault(const char* sFault) {
    wire::ADAPTER_FAULT New;
    ASSERT_TRUE(wire::ParseAdapterFault(sFault, &New)) << sFault;
    Setup_.Faults = {New};
    Plug();
    Transfer({{CSW_W, WORDS}, {TAR_W, 0x20000000}, {DRW_R}});
    Chip_.Accesses.clear();
  }
};

TEST_F(WireWithFaults, one_transfer_is_answered_otherwise) {
  for (const auto& [sFault, Ack] : {std::pair<const char*, int>{"fault 4", wire::ACK_FAULT},
                                    {"no-ack 4", wire::ACK_NONE},
                                    {"parity 4", wire::ACK_OK | 8}}) {
    Fault(sFault);
    EXPECT_EQ(Ack, Transfer({{DRW_R}, {DRW_R}}).Ack) << sFault;
    EXPECT_EQ(wire::ACK_OK, Transfer({{DRW_R}}).Ack) << sFault;
  }
}

TEST_F(WireWithFaults, waits_up_to_the_retries_are_not_seen) {
  Fault("wait 4 100");
  EXPECT_EQ(wire::ACK_OK, Transfer({{DRW_R}}).Ack);
  Fault("wait 4 101");
  EXPECT_EQ(wire::ACK_WAIT, Transfer({{DRW_R}}).Ack);
  EXPECT_EQ(wire::ACK_OK, Transfer({{DRW_R}}).Ack);
  Fault("wait 4 101");
  Execute({0x04, 0, 200, 0, 0, 0});
  EXPECT_EQ(wire::ACK_OK, Transfer({{DRW_R}}).Ack);
}

TEST_F(WireWithFaults, a_lost_or_silent_adapter_answers_nothing_from_then_on) {
  Fault("lost 4");
  Transfer({{DRW_R}});
  EXPECT_EQ(-1, Length_);
  Execute({0x00, 0xF0});
  EXPECT_EQ(-1, Length_);
  Fault("silent 4");
  Transfer({{DRW_R}});
  EXPECT_EQ(0, Length_);
  Execute({0x00, 0xF0});
  EXPECT_EQ(0, Length_);
}

TEST_F(WireWithFaults, what_is_no_fault_is_refused) {
  for (const char* sFault : {"", "lost", "lost 0", "lost x", "lost 1 2", "wait 1", "late 1",
                             "Fault 1", "wait 1 2 3", "fault 1 2", "lost -1", "wait 1 -2", "-1"}) {
    wire::ADAPTER_FAULT Fault;
    EXPECT_FALSE(wire::ParseAdapterFault(sFault, &Fault)) << sFault;
  }
}

// -- Core ----------------------------------------------------------------------------------------

TEST_F(WireAdapter, the_core_is_halted_and_run_by_dhcsr_with_its_key) {
  Poke(DHCSR, 0x00000003);
  EXPECT_FALSE(Chip_.Halted);
  Poke(DHCSR, 0xA05F0003);
  EXPECT_TRUE(Chip_.Halted);
  EXPECT_EQ(0x00030003u, Peek(DHCSR));
  Poke(DHCSR, 0xA05F0000);
  EXPECT_FALSE(Chip_.Halted);
  Poke(DHCSR, 0xA05F0002);
  EXPECT_FALSE(Chip_.Halted);
}

TEST_F(WireAdapter, a_reset_is_told_once_and_halts_where_a_trap_is_set) {
  Poke(AIRCR, 0x00000004);
  EXPECT_EQ(0u, Chip_.NumResets);
  Poke(AIRCR, 0x05FA0004);
  EXPECT_EQ(1u, Chip_.NumResets);
  EXPECT_FALSE(Chip_.Halted);
  EXPECT_EQ(0x03010000u, Peek(DHCSR));
  EXPECT_EQ(0x01010000u, Peek(DHCSR));
  Poke(DHCSR, 0xA05F0003);
  Poke(DEMCR, 0x01000001);
  Poke(AIRCR, 0x05FA0004);
  EXPECT_TRUE(Chip_.Halted);
  EXPECT_EQ(0x02030001u, Peek(DHCSR));
}

TEST_F(WireAdapter, a_reset_of_the_chips_own_goes_into_the_trap_too) {
  Poke(DHCSR, 0xA05F0001);
  Poke(DEMCR, 0x00000001);
  Chip_.NumResets++;
  EXPECT_EQ(0x02030001u, Peek(DHCSR));
}

TEST_F(WireAdapter, the_pin_holds_the_chip_in_reset_until_it_is_let_go) {
  Poke(DHCSR, 0xA05F0001);
  Poke(DEMCR, 0x00000001);
  EXPECT_EQ((std::vector<uint8_t>{0x10, 0x0B}), Execute({0x10, 0x00, 0x80}));
  EXPECT_EQ(0x02010001u, Peek(DHCSR));
  EXPECT_EQ(0x02010001u, Peek(DHCSR));
  EXPECT_EQ((std::vector<uint8_t>{0x10, 0x8B}), Execute({0x10, 0x80, 0x80}));
  EXPECT_EQ(0x00030001u, Peek(DHCSR) & ~0x02000000u);
  EXPECT_TRUE(Chip_.Halted);
}

TEST_F(WireAdapter, a_host_that_leaves_lets_the_pin_go_and_nothing_else) {
  Poke(DHCSR, 0xA05F0003);
  Execute({0x10, 0x00, 0x80});
  Adapter_->Disconnect();
  EXPECT_EQ(0, Transfer({{DPIDR_R}}).Ack);
  Execute({0x02, 1});
  EXPECT_EQ(1u, Peek(DHCSR) & 1);
  EXPECT_TRUE(Port_->IsCoreHeld());
}

TEST_F(WireAdapter, the_rom_table_names_the_chip) {
  EXPECT_EQ(0x13u, Peek(0xE00FFFE0));
  EXPECT_EQ(0x04u, Peek(0xE00FFFE4));
  EXPECT_EQ(0xFFF0F003u, Peek(0xE00FF000));
  EXPECT_EQ(0x410FC241u, Peek(0xE000ED00));
  EXPECT_TRUE(Chip_.Accesses.empty());
}

TEST_F(WireAdapter, dbgmcu_is_the_chips_and_not_the_cores) {
  EXPECT_TRUE(wire::Core::Owns(0xE000EDF0));
  EXPECT_FALSE(wire::Core::Owns(0xE0042000));
  EXPECT_FALSE(wire::Core::Owns(0xE0042004));
  EXPECT_FALSE(wire::Core::Owns(0x20000000));
}

}  // namespace
