// SPDX-License-Identifier: MIT

#include "tests/sim/steps.h"

#include <stdlib.h>

#include <memory>
#include <optional>
#include <vector>

#include "sim/catalog.h"
#include "sim/request.h"
#include "sim/text.h"

static const uint32_t CONTENT = 0x12345678;

static std::string Replace(std::string sText, const std::string& sFrom, const std::string& sTo) {
  for (size_t i = sText.find(sFrom); i != std::string::npos;
       i        = sText.find(sFrom, i + sTo.size())) {
    sText.replace(i, sFrom.size(), sTo);
  }
  return sText;
}

static uint32_t Hex(const std::string& sText) {
  uint32_t Value = 0;
  if (!sim::ParseU32("0x" + sText, &Value)) {
    ADD_FAILURE() << "\"" << sText << "\" is no number";
  }
  return Value;
}

class Player {
 public:
  Player(const sim::DEVICE_ROW& Row, const STEPS_WORDS& Words)
      : words_(Words), device_(std::make_unique<sim::Device>(Row)) {}

  // "" when all went as written.
  std::string Prepare(std::string sState);
  std::string Play(const std::string& sSteps);

 private:
  struct PLACE {
    uint32_t Address = 0;
    uint32_t Size    = 4;
  };

  std::string          Step(const std::string& sStep);
  std::string          Order(const std::string& sName, const std::string& sValue);
  std::string          Ask(const std::string& sName, const std::string& sExpected);
  std::string          Write(const std::string& sName, const std::string& sValue);
  std::string          Read(const std::string& sName, const std::string& sExpected);
  std::string          Register(const std::string& sName, const std::string& sPrinted);
  std::string          Extent(uint32_t Address, uint32_t Bytes);
  std::optional<PLACE> Find(const std::string& sName) const;
  void                 Pass(uint64_t Us) { device_->AdvanceTo(device_->NowUs() + Us); }
  std::string          FromFile(const std::string& sKey, const std::string& sValue);
  void                 SaveAndLoad();

  const STEPS_WORDS&           words_;
  std::unique_ptr<sim::Device> device_;
};

std::string Player::Prepare(std::string sState) {
  sim::CREATE_REQUEST Request;
  std::string         sError;
  const bool          Empty = sState.rfind("empty", 0) == 0;
  if (Empty) {
    sState = sState.substr(5);
  }
  for (sim::Memory& Each : device_->Memories()) {
    Each.Fill(Empty ? Each.Row().Erased : CONTENT);
  }
  if (!sim::ParseRequest(sim::SplitWords(sState), &Request, &sError) ||
      !sim::Prepare(device_.get(), Request, &sError)) {
    return sError;
  }
  device_->PowerOn();
  if (!Empty) {
    device_->Memories().Find(sim::SRAM)->Fill(CONTENT);
  }
  return "";
}

std::string Player::Play(const std::string& sSteps) {
  const std::string sOff = sim::Format("%02X", device_->Facts().pFamily->Level0);
  for (const std::string& sStep : sim::SplitWords(Replace(sSteps, "%off", sOff))) {
    const size_t      Colon = sStep.find(':');
    const std::string sWord = sStep.substr(0, Colon);
    const auto        Own   = words_.find(sWord);
    std::string       sError;
    if (Own != words_.end()) {
      const std::string sArgument = Colon == std::string::npos ? "" : sStep.substr(Colon + 1);
      sError                      = Play(Replace(Own->second, "$", sArgument));
    } else {
      sError = Step(sStep);
    }
    if (!sError.empty()) {
      return "\"" + sStep + "\": " + sError;
    }
  }
  return "";
}

std::string Player::Step(const std::string& sStep) {
  const size_t At = sStep.find_first_of("=?:");
  if (At == std::string::npos) {
    return Order(sStep, "");
  }
  const std::string sName = sStep.substr(0, At), sValue = sStep.substr(At + 1);
  if (sStep[At] == ':') {
    return Order(sName, sValue);
  }
  return sStep[At] == '?' ? Ask(sName, sValue) : Write(sName, sValue);
}

// -- Orders --------------------------------------------------------------------------------------

void Player::SaveAndLoad() {
  sim::KeyFile File;
  std::string  sError;
  device_->SaveTo(&File);
  const sim::DEVICE_ROW& Row = device_->Row();
  device_                    = std::make_unique<sim::Device>(Row);
  EXPECT_TRUE(device_->LoadFrom(File, &sError)) << sError;
}

std::string Player::FromFile(const std::string& sKey, const std::string& sValue) {
  sim::KeyFile File;
  std::string  sError;
  File.Add(sKey, sValue);
  return device_->LoadFrom(File, &sError) ? "" : sError;
}

std::string Player::Order(const std::string& sName, const std::string& sValue) {
  const std::vector<std::string> Parts = sim::Split(sValue, '=');
  if (sName == "finish") {
    for (int i = 0; i < 1000 && device_->Flash().Busy(); i++) {
      Pass(100000);
    }
    return device_->Flash().Busy() ? "still busy" : "";
  }
  if (sName == "wait") {
    Pass(strtoull(sValue.c_str(), nullptr, 10) *
         (sValue.find("ms") != std::string::npos ? 1000 : 1));
  } else if (sName == "reset" || sName == "run") {
    device_->SystemReset(sName == "reset", "test");
  } else if (sName == "power") {
    device_->PowerOff();
    device_->PowerOn();
  } else if (sName == "voltage") {
    device_->SetVoltage(static_cast<uint32_t>(strtoul(sValue.c_str(), nullptr, 10)));
  } else if (sName == "save") {
    SaveAndLoad();
  } else if (sName == "hold") {
    device_->Flash().HoldBusy(sValue == "forever" ? sim::FOREVER
                                                  : strtoull(sValue.c_str(), nullptr, 10));
  } else if (sName == "variant") {
    return device_->SetVariant(Parts[0], Hex(Parts[1])) ? "" : "no such variant";
  } else if (sName == "file") {
    return FromFile(Parts[0], Parts[1]);
  } else if (sName == "register") {
    return Register(Parts[0], Parts[1]);
  } else if (sName == "memory") {
    return Extent(Hex(Parts[0]), Hex(Parts[1]));
  } else if (sName == "put") {
    return device_->Flash().LoadLine("option." + Parts[0], Hex(Parts[1])) ? "" : "no such word";
  } else {
    const int Word = device_->Flash().FindWord(sName);
    if (Word < 0) {
      return "unknown step";
    }
    const uint32_t Stored = device_->Flash().Stored(Word);
    return Stored == Hex(sValue) ? "" : sim::Format("is stored as %08X", Stored);
  }
  return "";
}

// -- Questions -----------------------------------------------------------------------------------

static std::string Compare(const std::string& sFound, const std::string& sExpected) {
  return sFound == sExpected ? "" : "is " + sFound;
}

static std::string ContentOf(const sim::Memory& Memory) {
  uint32_t NumKept = 0;
  for (uint32_t i = 0; i < Memory.Row().Bytes; i += 4) {
    NumKept += Memory.WordAt(Memory.Row().Base + i) == CONTENT;
  }
  return Memory.IsErased() ? "erased" : NumKept * 4 == Memory.Row().Bytes ? "kept" : "partly";
}

std::string Player::Ask(const std::string& sName, const std::string& sExpected) {
  const sim::Controller& Flash = device_->Flash();
  for (const sim::Memory& Each : device_->Memories()) {
    if (sName == Each.Row().sName) {
      return Compare(ContentOf(Each), sExpected);
    }
  }
  if (sName == "in-use") {
    return Compare(std::to_string(device_->Memories().Find(sim::MAIN_FLASH)->BytesInUse()),
                   sExpected);
  }
  if (sName == "level") {
    return Compare(std::to_string(Flash.Level()), sExpected);
  }
  if (sName == "stored") {
    return Compare(std::to_string(Flash.StoredLevel()), sExpected);
  }
  if (sName == "resets") {
    return Compare(std::to_string(device_->WatchdogResets()), sExpected);
  }
  if (sName == "powered") {
    return Compare(device_->IsPowered() ? "1" : "0", sExpected);
  }
  if (sName == "halted") {
    return Compare(device_->CoreHalted() ? "1" : "0", sExpected);
  }
  if (sName == "stalled") {
    return Compare(std::to_string(device_->TakeStalledUs()), sExpected);
  }
  if (sName == "error") {
    return Compare(Flash.LoadError().empty() ? "none" : Flash.LoadError(), sExpected);
  }
  if (sName == "remark") {
    return Compare(Flash.Remarks().empty() ? "none" : "some", sExpected);
  }
  return Read(sName, sExpected);
}

// -- The bus -------------------------------------------------------------------------------------

std::optional<Player::PLACE> Player::Find(const std::string& sName) const {
  PLACE       Place;
  std::string sRest = sName;
  if (const size_t Dot = sRest.find('.'); Dot != std::string::npos) {
    Place.Size = Hex(sRest.substr(Dot + 1));
    sRest      = sRest.substr(0, Dot);
  }
  if (const size_t Plus = sRest.find('+'); Plus != std::string::npos) {
    Place.Address = Hex(sRest.substr(Plus + 1));
    sRest         = sRest.substr(0, Plus);
  }
  if (sRest[0] == '@') {
    Place.Address += Hex(sRest.substr(1));
    return Place;
  }
  if (const std::optional<uint32_t> Address = device_->AddressOf(sRest)) {
    Place.Address += *Address;
    return Place;
  }
  return std::nullopt;
}

std::string Player::Write(const std::string& sName, const std::string& sValue) {
  const bool Fails = sValue.back() == '!';
  const auto Place = Find(sName);
  if (!Place) {
    return "unknown name";
  }
  const uint32_t Value = Hex(Fails ? sValue.substr(0, sValue.size() - 1) : sValue);
  const bool     Good  = device_->Write(Place->Address, Place->Size, Value);
  return Good != Fails ? "" : Good ? "the transfer did not fail" : "the transfer failed";
}

std::string Player::Read(const std::string& sName, const std::string& sExpected) {
  const auto Place = Find(sName);
  uint32_t   Value = 0;
  if (!Place) {
    return "unknown name";
  }
  const bool Good = device_->Read(Place->Address, Place->Size, &Value);
  if (Good == (sExpected == "!")) {
    return Good ? sim::Format("the transfer did not fail, it read %08X", Value)
                : "the transfer failed";
  }
  if (sExpected == "!" || sExpected == "ok") {
    return "";
  }
  const std::vector<std::string> Parts = sim::Split(sExpected, '/');
  const uint32_t                 Mask  = Parts.size() == 2 ? Hex(Parts[1]) : ~0u;
  return (Value & Mask) == Hex(Parts[0]) ? "" : sim::Format("is %08X", Value);
}

std::string Player::Register(const std::string& sName, const std::string& sPrinted) {
  const std::vector<std::string> Parts = sim::Split(sPrinted, '/');
  const uint32_t                 Reset = Hex(Parts[0]), Writable = Hex(Parts[1]);
  const struct {
    const char* sWritten;
    uint32_t    Expected;
  } aWrites[] = {{"", Reset}, {"FFFFFFFF", Reset | Writable}, {"0", Reset & ~Writable}};
  std::string sError;
  for (const auto& [sWritten, Expected] : aWrites) {
    sError += *sWritten != '\0' ? Write(sName, sWritten) : "";
    sError += Read(sName, sim::Format("%X", Expected));
  }
  return sError;
}

std::string Player::Extent(uint32_t Address, uint32_t Bytes) {
  std::string sError;
  for (const uint32_t Inside : {Address, Address + Bytes - 4}) {
    sError += Read(sim::Format("@%X", Inside), "ok");
  }
  for (const uint32_t Outside : {Address - 4, Address + Bytes}) {
    sError += Read(sim::Format("@%X", Outside), "!");
  }
  return sError;
}

// -- Rows ----------------------------------------------------------------------------------------

void PlayCase(const STEPS_CASE& Case, const STEPS_WORDS& Words) {
  for (const std::string& sDevice : sim::SplitWords(Case.sDevices)) {
    const sim::DEVICE_ROW* pRow = sim::FindDevice(sDevice);
    ASSERT_NE(nullptr, pRow) << sDevice;
    Player Device(*pRow, Words);
    EXPECT_EQ("", Device.Prepare(Case.sState)) << sDevice << " " << Case.sState;
    EXPECT_EQ("", Device.Play(Case.sSteps)) << sDevice << " " << Case.sState;
  }
}

void ExpectRefused(const char* sDevice, const char* sState, const char* sReason) {
  const sim::DEVICE_ROW* pRow = sim::FindDevice(sDevice);
  ASSERT_NE(nullptr, pRow) << sDevice;
  const STEPS_WORDS NoWords;
  Player            Device(*pRow, NoWords);
  EXPECT_EQ(sReason, Device.Prepare(sState)) << sDevice << " " << sState;
}
