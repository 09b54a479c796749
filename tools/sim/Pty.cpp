#include "Pty.h"

#include "Signals.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {

std::string SystemError(const char* what) {
    return std::string(what) + ": " + std::strerror(errno);
}

}  // namespace

Pty::~Pty() {
    Close();
}

bool Pty::Open(std::string& error) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY);
    if (master_ < 0) {
        error = SystemError("posix_openpt");
        return false;
    }
    const char* name = nullptr;
    if (grantpt(master_) != 0 || unlockpt(master_) != 0 || (name = ptsname(master_)) == nullptr) {
        error = SystemError("preparing the pseudo-terminal");
        Close();
        return false;
    }
    slavePath_ = name;
    keptSlave_ = ::open(name, O_RDWR | O_NOCTTY);
    if (keptSlave_ < 0) {
        error = SystemError("opening the slave");
        Close();
        return false;
    }
    termios mode{};
    tcgetattr(keptSlave_, &mode);
    cfmakeraw(&mode);
    cfsetispeed(&mode, B921600);
    cfsetospeed(&mode, B921600);
    if (tcsetattr(keptSlave_, TCSANOW, &mode) != 0) {
        error = SystemError("setting the slave to raw mode");
        Close();
        return false;
    }
    fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
    return true;
}

void Pty::Close() {
    if (keptSlave_ >= 0) {
        ::close(keptSlave_);
        keptSlave_ = -1;
    }
    if (master_ >= 0) {
        ::close(master_);
        master_ = -1;
    }
}

ssize_t Pty::Read(uint8_t* buffer, size_t size) {
    if (master_ < 0) {
        return -1;
    }
    ssize_t count = ::read(master_, buffer, size);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return 0;
    }
    return count;
}

Pty::WriteResult Pty::Write(const uint8_t* data, size_t length, int overrunMs) {
    while (length > 0) {
        if (master_ < 0) {
            return WriteResult::Failed;
        }
        if (StopRequested()) {
            return WriteResult::Stopped;
        }
        ssize_t written = ::write(master_, data, length);
        if (written > 0) {
            data += written;
            length -= static_cast<size_t>(written);
            continue;
        }
        if (written < 0 && errno != EAGAIN && errno != EINTR) {
            return WriteResult::Failed;
        }
        pollfd room{master_, POLLOUT, 0};
        int ready = WaitForEvents(&room, 1, overrunMs > 0 ? overrunMs : -1);
        if (ready == 0) {
            tcflush(keptSlave_, TCIFLUSH);
            return WriteResult::Overrun;
        }
    }
    return WriteResult::Done;
}

bool Pty::LineIsRaw() const {
    termios mode{};
    if (keptSlave_ < 0 || tcgetattr(keptSlave_, &mode) != 0) {
        return true;
    }
    bool altersInput = (mode.c_lflag & (ECHO | ICANON | ISIG | IEXTEN)) != 0 ||
                       (mode.c_iflag & (ICRNL | INLCR | IGNCR | ISTRIP | IXON)) != 0;
    bool altersOutput = (mode.c_oflag & OPOST) != 0;
    return !altersInput && !altersOutput;
}

bool CreateLink(const std::string& path, const std::string& target, std::string& error) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        error = SystemError(("removing the old " + path).c_str());
        return false;
    }
    if (::symlink(target.c_str(), path.c_str()) != 0) {
        error = SystemError(("linking " + path).c_str());
        return false;
    }
    return true;
}

void RemoveLink(const std::string& path, const std::string& target) {
    char pointsTo[PATH_MAX];
    ssize_t length = ::readlink(path.c_str(), pointsTo, sizeof pointsTo - 1);
    if (length >= 0 && std::string(pointsTo, static_cast<size_t>(length)) == target) {
        ::unlink(path.c_str());
    }
}
