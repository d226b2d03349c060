#include "command.h"

#include <cstdlib>
#include <iostream>

namespace pavo {

Args::Args(int argc, char** argv, const std::vector<std::string>& flags) {
  for (int i = 0; i < argc; ++i) {
    std::string a = argv[i];
    if (a.size() > 2 && a.compare(0, 2, "--") == 0) {
      std::string name = a.substr(2);
      const size_t eq = name.find('=');
      if (eq != std::string::npos) {
        options_[name.substr(0, eq)] = name.substr(eq + 1);
        continue;
      }
      bool is_flag = false;
      for (const auto& f : flags) is_flag |= f == name;
      if (is_flag) {
        options_[name] = "1";
      } else if (i + 1 < argc) {
        options_[name] = argv[++i];
      } else if (error_.empty()) {
        error_ = "option --" + name + " needs a value";
      }
    } else if (a == "-o" && i + 1 < argc) {
      options_["o"] = argv[++i];
    } else if (a == "-o" && error_.empty()) {
      error_ = "option -o needs a value";
    } else {
      positional_.push_back(a);
    }
  }
}

std::string Args::get(const std::string& name, const std::string& fallback) const {
  auto it = options_.find(name);
  return it == options_.end() ? fallback : it->second;
}

double Args::getNumber(const std::string& name, double fallback, bool* ok) const {
  if (ok) *ok = true;
  auto it = options_.find(name);
  if (it == options_.end()) return fallback;
  char* end = nullptr;
  const double v = std::strtod(it->second.c_str(), &end);
  if (end == it->second.c_str() || *end != '\0') {
    if (ok) *ok = false;
    return fallback;
  }
  return v;
}

std::vector<std::string> Args::unknown(const std::vector<std::string>& known) const {
  std::vector<std::string> out;
  for (const auto& [name, value] : options_) {
    bool found = false;
    for (const auto& k : known) found |= k == name;
    if (!found) out.push_back(name);
  }
  return out;
}

namespace {
std::map<std::string, Command>& registry() {
  static std::map<std::string, Command> r;
  return r;
}
}  // namespace

bool registerCommand(const Command& command) {
  registry()[command.name] = command;
  return true;
}

const std::map<std::string, Command>& commands() { return registry(); }

void printCommandHelp(const Command& command) {
  std::cout << "usage: pavo " << command.name << " " << command.usage << "\n" << command.summary << "\n";
  if (!command.details.empty()) std::cout << "\n" << command.details;
}

int usageError(const std::string& name, const std::string& message) {
  std::cerr << "pavo " << name << ": " << message << "\n";
  auto it = registry().find(name);
  if (it != registry().end()) std::cerr << "usage: pavo " << name << " " << it->second.usage << "\n";
  return 2;
}

int failure(const std::string& name, const std::string& message) {
  std::cerr << "pavo " << name << ": " << message << "\n";
  return 1;
}

}  // namespace pavo
