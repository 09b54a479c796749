// Where the loaded library keeps varnik.json and its log, found by the rules the library
// follows itself, so that varnik can say when a file it should have written is not there.
#pragma once

#include <ostream>
#include <string>

// After a command has run: reports on `err`, with its path, a varnik.json that checkport
// (`savedPort` >= 0, the port it found) could not write, and a log the library has switched
// on but could not write. Says nothing when all is well.
void ReportUnwrittenFiles(const std::string& libraryPath, int savedPort, std::ostream& err);

// Why the library found no port it could open (its result 110), from the paths alone: which
// config/COM<N> was tried and what is wrong with it (missing, a dangling link, no permission,
// held by another process or by pcscd). `port` is the number tried, or 0 for the one that
// varnik.json names. "" when nothing is found to be wrong, or on Windows, where ports are
// the system's.
std::string ExplainPortFailure(const std::string& libraryPath, int port);
