// sim/keyfile.h
// SPDX-License-Identifier: MIT
//
// The bench's files: lines "key = value", in the order in which they were added. A key may be
// there more than once. Empty lines and lines that begin with '#' are comments and are not kept.

#ifndef SIM_KEYFILE_H
#define SIM_KEYFILE_H

#include <string>
#include <vector>

namespace sim {

struct KEY_LINE {
  std::string sKey;
  std::string sValue;
  int         LineNo = 0;  // in the file it was loaded from; 0: it was added

  bool operator==(const KEY_LINE&) const = default;
};

class KeyFile {
 public:
  // False on failure, with *psError saying file, line and reason.
  bool Load(const std::string& sPath, std::string* psError);

  // The lines as text; sHeading becomes the comment on top.
  std::string Text(const std::string& sHeading) const;

  void Add(const std::string& sKey, const std::string& sValue);
  void Add(const KeyFile& Other);

  // The first value of the key, or sDefault.
  std::string Get(const std::string& sKey, const std::string& sDefault = "") const;

  const std::vector<KEY_LINE>& Lines() const { return lines_; }
  // How an error about a line begins: "path:line: ". "path: " for a line that was added, "" when no
  // file was loaded.
  std::string Place(const KEY_LINE& Line = {}) const;

 private:
  std::string           sPath_;
  std::vector<KEY_LINE> lines_;
};

// UNTIL_EXIT: what is written is there whatever happens to the program. FOR_GOOD: also after a loss
// of the host's power, which takes a hundred times as long.
enum LASTING { UNTIL_EXIT, FOR_GOOD };

// Replaces the file as a whole: a reader, or a program killed at any moment, finds the old file or the
// new one. False on failure, with *psError; the old file is then untouched.
bool ReplaceFile(const std::string& sPath, const std::string& sText, LASTING Lasting,
                 std::string* psError);

}  // namespace sim

#endif
