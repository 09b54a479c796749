// The pseudo-terminal that stands in for the terminal's serial port. The host opens the slave
// side like a serial device; the simulator reads and writes the master side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

class Pty {
public:
    Pty() = default;
    ~Pty();
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    // Creates the pair, sets the slave to raw mode and keeps one slave descriptor open, so
    // that the master sees no hangup when the host closes its side between calls.
    bool Open(std::string& error);
    void Close();

    bool IsOpen() const { return master_ >= 0; }
    int MasterFd() const { return master_; }
    const std::string& SlavePath() const { return slavePath_; }

    // What the host has sent: a count, 0 when nothing is waiting, -1 on a failure.
    ssize_t Read(uint8_t* buffer, size_t size);
    enum class WriteResult { Done, Stopped, Overrun, Failed };
    // Writes everything, waiting while the host's input queue is full. If the host takes no
    // byte for overrunMs (0: no limit), the rest is lost and the queue is emptied, as on a
    // serial line that nobody reads: a real port drops what comes in while it is closed.
    WriteResult Write(const uint8_t* data, size_t length, int overrunMs);

    // False when the line discipline would alter bytes: echo, canonical input, CR/LF
    // translation or output processing. The host is expected to keep the line raw.
    bool LineIsRaw() const;

private:
    int master_ = -1;
    int keptSlave_ = -1;
    std::string slavePath_;
};

// PATH becomes a symbolic link to target; an old file or link of that name is replaced.
bool CreateLink(const std::string& path, const std::string& target, std::string& error);
// Removes the link, but only while it still points to target (another simulator may own it).
void RemoveLink(const std::string& path, const std::string& target);
