// Where the loaded library keeps varnik.json and its log, found by the rules the library
// follows itself, so that varnik can say when a file it should have written is not there.
#pragma once

#include <ostream>
#include <string>

// After a command has run: reports on `err`, with its path, a varnik.json that checkport
// (`savedPort` >= 0, the port it found) could not write, and a log the library has switched
// on but could not write. Says nothing when all is well.
void ReportUnwrittenFiles(const std::string& libraryPath, int savedPort, std::ostream& err);
