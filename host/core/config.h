#pragma once
// Configuration variables of the host. A variable has a default; a
// configuration file and then the environment may override it. The file is
// $ZTA_CONFIG_FILE, else $XDG_CONFIG_HOME/zelmar/zta.conf, else
// ~/.config/zelmar/zta.conf, with lines "name=value" ('#' starts a comment).
// The environment variable has the variable's own name.
#include <optional>
#include <string>

namespace zta {

class ConfigBool {
 public:
  ConfigBool(const char* name, bool def, const char* help);
  const char* GetHelp() const { return help_; }
  // The current value: default, then file, then environment; re-read on each call.
  bool Read() const;

 private:
  const char* name_;
  bool default_;
  const char* help_;
};

// The text that the configuration file or the environment gives for a name.
std::optional<std::string> LookupConfigValue(const std::string& name);
// "1", "true", "yes", "on" and their opposites, any case; anything else is nothing.
std::optional<bool> ParseBool(const std::string& text);

}  // namespace zta
