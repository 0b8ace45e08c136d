#pragma once

namespace session_helper {

// Makes this process one of the person in front of the screen, as a program that the person started
// from the desktop is: for good with the ids and groups of that person and of nobody else, with an
// environment that holds what the session needs and nothing else, in the person's home, with
// default signals and umask. An ordinary user is that person; for the superuser it is the console
// user. False, with a line on standard error, when there is none, when it is the superuser, or when
// the rights could not be given up: then nothing may be started.
bool becomePerson();

}  // namespace session_helper
