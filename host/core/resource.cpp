#include "host/core/resource.h"

#include <fstream>
#include <sstream>

namespace zta {

Result<void> StringResource::Load(const std::string& folder) {
  const std::string path = folder + "/strings.txt";
  std::ifstream in(path);
  if (!in) return IoError("module resource " + path + " could not be read");
  std::map<int, std::string> table;
  std::string line;
  int lineNo = 0;
  while (std::getline(in, line)) {
    ++lineNo;
    const auto first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') continue;
    std::istringstream ls(line);
    int id = 0;
    if (!(ls >> id)) return IoError(path + ":" + std::to_string(lineNo) + ": expected a string id");
    const auto q0 = line.find('"');
    const auto q1 = line.rfind('"');
    if (q0 == std::string::npos || q1 == q0) return IoError(path + ":" + std::to_string(lineNo) + ": expected a quoted text");
    table[id] = line.substr(q0 + 1, q1 - q0 - 1);
  }
  strings_ = std::move(table);
  folder_ = folder;
  loaded_ = true;
  return OK();
}

std::string StringResource::Get(int id) const {
  auto it = strings_.find(id);
  return it == strings_.end() ? std::string() : it->second;
}

}  // namespace zta
