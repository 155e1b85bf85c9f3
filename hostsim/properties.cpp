// Android system properties: a process-wide name=value store, seeded from
// the environment when first used (see hostsim/properties.h).
#include <cutils/properties.h>
#include <hostsim/properties.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace hostsim {
namespace {

using Store = std::map<std::string, std::string>;

std::mutex& storeMutex() {
  static std::mutex m;
  return m;
}

std::string seedFromEnvironment(Store& store);

Store& store() {
  static Store s;
  static bool seeded = false;
  if (!seeded) {
    seeded = true;
    std::string problems = seedFromEnvironment(s);
    if (!problems.empty()) std::fprintf(stderr, "vyhost: properties: %s\n", problems.c_str());
  }
  return s;
}

bool validName(const std::string& name) {
  if (name.empty()) return false;
  for (char c : name) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '.' || c == '_' || c == '-' || c == ':' || c == '@';
    if (!ok) return false;
  }
  return true;
}

// Empty when `name` may hold `value`.
std::string refusal(const std::string& name, const std::string& value) {
  if (!validName(name)) return "invalid property name \"" + name + "\"";
  if (value.size() >= PROPERTY_VALUE_MAX && name.compare(0, 3, "ro.") != 0)
    return "value of " + name + " is " + std::to_string(value.size()) +
           " characters long; at most " + std::to_string(PROPERTY_VALUE_MAX - 1) + " allowed";
  return std::string();
}

std::string trim(const std::string& s) {
  const char* ws = " \t\r\n";
  size_t b = s.find_first_not_of(ws);
  if (b == std::string::npos) return std::string();
  size_t e = s.find_last_not_of(ws);
  return s.substr(b, e - b + 1);
}

// Splits one line into name and value; empty `why` on success.
bool splitLine(const std::string& raw, std::string& name, std::string& value, std::string& why) {
  const std::string line = trim(raw);
  if (!line.empty() && line[0] == '[') {
    // [name]: [value]
    size_t close = line.find("]:");
    if (close == std::string::npos) {
      why = "expected [name]: [value]";
      return false;
    }
    std::string rest = trim(line.substr(close + 2));
    if (rest.size() < 2 || rest.front() != '[' || rest.back() != ']') {
      why = "expected [name]: [value]";
      return false;
    }
    name = trim(line.substr(1, close - 1));
    value = rest.substr(1, rest.size() - 2);
    return true;
  }
  size_t eq = line.find('=');
  if (eq == std::string::npos) {
    why = "expected name=value";
    return false;
  }
  name = trim(line.substr(0, eq));
  value = trim(line.substr(eq + 1));
  return true;
}

bool parseInto(const std::string& text, const std::string& origin,
               std::vector<std::pair<std::string, std::string>>& out, std::string* error) {
  std::istringstream in(text);
  std::string raw;
  int lineNo = 0;
  while (std::getline(in, raw)) {
    ++lineNo;
    const std::string line = trim(raw);
    if (line.empty() || line[0] == '#') continue;
    std::string name, value, why;
    if (splitLine(line, name, value, why)) why = refusal(name, value);
    if (!why.empty()) {
      if (error) *error = origin + ":" + std::to_string(lineNo) + ": " + why;
      return false;
    }
    out.emplace_back(std::move(name), std::move(value));
  }
  return true;
}

bool readFile(const std::string& path, std::string& text, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    if (error) *error = path + ": cannot be opened: " + std::strerror(errno);
    return false;
  }
  std::ostringstream ss;
  ss << in.rdbuf();
  text = ss.str();
  return true;
}

// Called with the store being built (no lock held by anyone else yet).
std::string seedFromEnvironment(Store& s) {
  std::string problems;
  auto note = [&problems](const std::string& p) {
    if (!problems.empty()) problems += "; ";
    problems += p;
  };
  if (const char* file = std::getenv("LUMO_PROPERTIES_FILE"); file && *file) {
    std::string text, error;
    std::vector<std::pair<std::string, std::string>> entries;
    if (readFile(file, text, &error) && parseInto(text, file, entries, &error)) {
      for (auto& [k, v] : entries) s[k] = v;
    } else {
      note(error);
    }
  }
  if (const char* props = std::getenv("LUMO_PROPS"); props && *props) {
    std::string text(props);
    size_t start = 0;
    while (start <= text.size()) {
      size_t end = text.find(';', start);
      if (end == std::string::npos) end = text.size();
      const std::string item = trim(text.substr(start, end - start));
      start = end + 1;
      if (item.empty()) continue;
      std::string name, value, why;
      size_t eq = item.find('=');
      if (eq == std::string::npos) {
        why = "expected name=value";
      } else {
        name = trim(item.substr(0, eq));
        value = trim(item.substr(eq + 1));
        why = refusal(name, value);
      }
      if (why.empty()) {
        s[name] = value;
      } else {
        note("LUMO_PROPS \"" + item + "\": " + why);
      }
    }
  }
  return problems;
}

bool lookup(const char* key, std::string& value) {
  if (key == nullptr) return false;
  std::lock_guard<std::mutex> lock(storeMutex());
  auto it = store().find(key);
  if (it == store().end()) return false;
  value = it->second;
  return true;
}

}  // namespace

void clearProperties() {
  std::lock_guard<std::mutex> lock(storeMutex());
  store().clear();
}

std::map<std::string, std::string> allProperties() {
  std::lock_guard<std::mutex> lock(storeMutex());
  return store();
}

bool setProperty(const std::string& name, const std::string& value, std::string* error) {
  std::string why = refusal(name, value);
  if (!why.empty()) {
    if (error) *error = why;
    return false;
  }
  std::lock_guard<std::mutex> lock(storeMutex());
  store()[name] = value;
  return true;
}

bool setPropertyArgument(const std::string& argument, std::string* error) {
  size_t eq = argument.find('=');
  if (eq == std::string::npos) {
    if (error) *error = "\"" + argument + "\": expected name=value";
    return false;
  }
  return setProperty(argument.substr(0, eq), argument.substr(eq + 1), error);
}

bool loadPropertyText(const std::string& text, const std::string& origin, std::string* error) {
  std::vector<std::pair<std::string, std::string>> entries;
  if (!parseInto(text, origin, entries, error)) return false;
  std::lock_guard<std::mutex> lock(storeMutex());
  for (auto& [k, v] : entries) store()[k] = v;
  return true;
}

bool loadPropertyFile(const std::string& path, std::string* error) {
  std::string text;
  if (!readFile(path, text, error)) return false;
  return loadPropertyText(text, path, error);
}

std::string formatProperties() {
  std::string out;
  for (const auto& [k, v] : allProperties()) out += "[" + k + "]: [" + v + "]\n";
  return out;
}

std::string reseedPropertiesFromEnvironment() {
  Store fresh;
  std::string problems = seedFromEnvironment(fresh);
  std::lock_guard<std::mutex> lock(storeMutex());
  store() = std::move(fresh);
  return problems;
}

}  // namespace hostsim

extern "C" int property_get(const char* key, char* value, const char* default_value) {
  std::string v;
  const char* src = nullptr;
  if (hostsim::lookup(key, v) && !v.empty()) {
    src = v.c_str();
  } else {
    src = default_value;
  }
  if (src == nullptr) {
    value[0] = '\0';
    return 0;
  }
  // Readers get at most PROPERTY_VALUE_MAX - 1 characters.
  size_t n = std::strlen(src);
  if (n > PROPERTY_VALUE_MAX - 1) n = PROPERTY_VALUE_MAX - 1;
  std::memcpy(value, src, n);
  value[n] = '\0';
  return static_cast<int>(n);
}

// Decimal, 0x hexadecimal or leading-0 octal, as strtoimax with base 0.
extern "C" int32_t property_get_int32(const char* key, int32_t default_value) {
  std::string v;
  if (!hostsim::lookup(key, v) || v.empty()) return default_value;
  errno = 0;
  char* end = nullptr;
  long long parsed = std::strtoll(v.c_str(), &end, 0);
  if (errno != 0 || end == v.c_str() || *end != '\0' || parsed < INT32_MIN || parsed > INT32_MAX) {
    return default_value;
  }
  return static_cast<int32_t>(parsed);
}

extern "C" int property_set(const char* key, const char* value) {
  if (key == nullptr || value == nullptr) return -1;
  return hostsim::setProperty(key, value) ? 0 : -1;
}
