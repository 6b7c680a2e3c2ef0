// CONTAINER:/PATH, the name of a place inside a container. A path inside a container never holds a ":", so the last
// ":/" of the text separates; before it host names may hold what they like. Stands on failure and host.
#pragma once

#include <string>
#include <vector>

namespace orba::tool {

struct Address {
  std::string container;           // the host's name, as the user wrote it
  std::vector<std::string> names;  // from the root on, in upper case; "." and ".." are already resolved
  bool asDirectory = false;        // written with a "/" at its end
  std::string standsFor;           // the text that messages use instead, empty for none
  std::string written;             // by the user, or what this is beside or below of

  bool IsRoot() const { return names.empty(); }
  const std::string& Name() const { return names.back(); }  // not of the root
  Address Parent() const;                                   // not of the root
  Address Child(const std::string& name) const;
  bool Holds(const Address& other) const;  // `other` is this place or below it
  std::string Path() const;                // "/", "/LOGS/DAY1.TXT"
  std::string Text() const;                // "card.orb:/LOGS/DAY1.TXT", as a shell takes it
};

// "CONTAINER:/PATH"; "CONTAINER" and "CONTAINER:" are the root. Throws a Failure on an empty container name.
Address ParseAddress(const std::string& text);

// Where the ":" of the last ":/" stands that can separate a container from a path inside it, which that of a drive
// cannot; npos where there is none.
std::size_t FindSeparatingColon(const std::string& text);

// For commands that work on a container as a whole: its host name, from which a ":" or ":/" at the end is taken. Throws
// a Failure on an empty name and on a place inside a container that is there.
std::string ParseContainer(const std::string& text);

}  // namespace orba::tool
