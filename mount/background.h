// A program that goes on working when the command that started it has ended, and still says by its exit status whether
// it came to that point. Stands on the system alone.
#pragma once

namespace orba::mount {

// Two processes from here on. The call returns in the new one; the old one waits until that one calls Leave and ends
// with 0 then, or until it ends and ends in the same way. False where there can be no new process.
bool GoToBackground();

// Lets the command that started this end: another session, "/" as current folder, standard streams that lead nowhere.
void Leave();

}  // namespace orba::mount
