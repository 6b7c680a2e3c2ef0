#include "mount/log.h"

#include <syslog.h>

#include <cstdio>

#include "inspect/container/names.h"

namespace orba::mount {

namespace {

bool g_toSystem = false;

std::string Visible(const std::string& line) {
  std::string visible;
  for (const char c : line) {
    const bool plain = c == '\\' || c == ' ';
    visible += plain ? std::string(1, c) : inspect::Printable(std::string(1, c));
  }
  return visible;
}

}  // namespace

void LogToSystem() {
  openlog("orba", LOG_PID, LOG_DAEMON);
  g_toSystem = true;
}

void Log(const std::string& line) {
  const std::string visible = Visible(line);
  if (g_toSystem) {
    syslog(LOG_WARNING, "%s", visible.c_str());
  } else {
    std::fprintf(stderr, "orba: %s\n", visible.c_str());
  }
}

}  // namespace orba::mount
