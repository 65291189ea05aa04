// sim/keyfile.h
//
// The bench's files: lines "key = value", in the order in which they were added. A key may stand
// more than once. Empty lines and lines that begin with '#' are comments and are not kept.

#ifndef SIM_KEYFILE_H
#define SIM_KEYFILE_H

#include <string>
#include <utility>
#include <vector>

namespace sim {

class KeyFile {
 public:
  // False on failure, with *psError saying file, line and reason.
  bool Load(const std::string& sPath, std::string* psError);

  // Replaces the file as a whole: a reader, or a crash at any moment, finds the old file or the
  // new one. sHeading becomes the comment on top.
  bool Save(const std::string& sPath, const std::string& sHeading, std::string* psError) const;

  void Add(const std::string& sKey, const std::string& sValue);

  // The first value of the key, or sDefault.
  std::string Get(const std::string& sKey, const std::string& sDefault = "") const;

  const std::vector<std::pair<std::string, std::string>>& Lines() const { return lines_; }

 private:
  std::vector<std::pair<std::string, std::string>> lines_;
};

}  // namespace sim

#endif
