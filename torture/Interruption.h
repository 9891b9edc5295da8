// A run that is asked to end, by Ctrl-C or another signal, takes its processes and its directories
// with it. The processes of one that is killed die with it; its directories go with the next run.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace Torture {

// From now on the signals that ask a program to end are noted, but for those that it was started
// to ignore.
void noteSignals();

// Ends the process if such a signal was noted: first the process group of the campaign and all that
// descends from it, then what they have left, then itself, by that signal.
void endIfAsked(pid_t campaign);

// Removes the directories that a process has made in the memory file system and left; and those of
// every process that is no more. Both say how many there were.
size_t removeDirectoriesOf(pid_t process);
size_t removeDirectoriesOfTheDead();

}  // namespace Torture
