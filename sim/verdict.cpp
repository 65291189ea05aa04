// SPDX-License-Identifier: MIT

#include "sim/verdict.h"

#include "sim/text.h"

namespace sim {

static void JudgeField(const Controller& Flash, const FIELD_VERDICT& Field, VERDICT* pVerdict) {
  const std::string sName = std::string(Flash.Word(Field.Word).sName) + "." + Field.pField->sName;
  if (Field.Stored != Field.Factory) {
    pVerdict->Differences.push_back(
        Format("%s is %X, not %X", sName.c_str(), Field.Stored, Field.Factory));
  } else if (Field.LoadedDiffers()) {
    pVerdict->Differences.push_back(
        Format("%s is %X and %X in force", sName.c_str(), Field.Stored, Field.Loaded));
  }
  pVerdict->Fields.push_back(Field);
}

static void JudgeOptions(const Controller& Flash, VERDICT* pVerdict) {
  for (int i = 0; i < Flash.NumWords(); i++) {
    const silicon::OPTION_WORD& Word = Flash.Word(i);
    for (const silicon::FIELD& Field : Word.Fields) {
      if (Field.Kind != silicon::STATUS) {
        JudgeField(Flash,
                   {.Word    = i,
                    .pField  = &Field,
                    .Stored  = Field.Get(Flash.Effective(i)),
                    .Loaded  = Field.Get(Flash.Loaded(i)),
                    .Factory = Field.Get(Word.Factory)},
                   pVerdict);
      }
    }
    if (Word.Fields.begin() != Word.Fields.end() && !Flash.Matches(i)) {
      pVerdict->Differences.push_back(std::string(Word.sName) + " has a wrong complement");
    }
  }
}

VERDICT Judge(const Device& Device) {
  const Controller& Flash = Device.Flash();
  VERDICT           Verdict;
  JudgeOptions(Flash, &Verdict);
  if (Flash.Level() != 0) {
    Verdict.Differences.push_back(Format("protection level %d in force", Flash.Level()));
  }
  if (!Flash.LoadError().empty()) {
    Verdict.Differences.push_back(Flash.LoadError() + " is set");
  }
  for (const Memory& Each : Device.Memories()) {
    if ((Each.Row().Kind == MAIN_FLASH || Each.Row().Kind == EEPROM) && !Each.IsErased()) {
      Verdict.Differences.push_back(std::string(Each.Row().sName) + " in use");
    }
  }
  if (Flash.Busy()) {
    Verdict.Differences.push_back(Flash.RunningText() + " is running");
  }
  return Verdict;
}

}  // namespace sim
