#include "tools/orba/host/host.h"

namespace orba::tool::host {

const char* const kPlainInShell = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./:@%+=,~";

std::vector<Argument> Arguments(int argc, char** argv) {
  std::vector<Argument> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back({argv[i]});
  return arguments;
}

bool IsSeparator(char c) { return c == '/'; }

std::size_t RootLength(const std::string& path) { return path.rfind('/', 0) == 0 ? 1 : 0; }

std::string SeparatorAfter(const std::string& directory) {
  return directory.empty() || directory.back() == '/' ? "" : "/";
}

std::size_t DriveLength(const std::string& /*path*/) { return 0; }

std::string NativePath(const std::string& path) { return path; }

std::string FromSystemText(const wchar_t* /*text*/) { return ""; }

std::string NameProblem(const std::string& /*name*/) { return ""; }

std::string Quoted(const std::string& word) {
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

}  // namespace orba::tool::host
