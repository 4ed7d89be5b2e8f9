#include "boardsim/pty.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace boardsim {

static std::string errnoText(const char* what)
{
    return std::string(what) + ": " + std::strerror(errno);
}

bool Pty::open(std::string& error)
{
    close();
    int m = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (m < 0) {
        error = errnoText("posix_openpt");
        return false;
    }
    char name[PATH_MAX];
    if (grantpt(m) != 0 || unlockpt(m) != 0 || ptsname_r(m, name, sizeof name) != 0) {
        error = errnoText("setting up the pty");
        ::close(m);
        return false;
    }
    int s = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (s < 0) {
        error = errnoText("opening the pty slave");
        ::close(m);
        return false;
    }
    termios t{};
    if (tcgetattr(s, &t) != 0) {
        error = errnoText("tcgetattr");
        ::close(s);
        ::close(m);
        return false;
    }
    cfmakeraw(&t);
    cfsetispeed(&t, B1200);
    cfsetospeed(&t, B1200);
    if (tcsetattr(s, TCSANOW, &t) != 0) {
        error = errnoText("tcsetattr");
        ::close(s);
        ::close(m);
        return false;
    }
    const int flags = fcntl(m, F_GETFL);
    if (flags < 0 || fcntl(m, F_SETFL, flags | O_NONBLOCK) != 0) {
        error = errnoText("fcntl");
        ::close(s);
        ::close(m);
        return false;
    }
    master_ = m;
    slave_ = s;
    slavePath_ = name;
    return true;
}

void Pty::close()
{
    if (master_ >= 0)
        ::close(master_);
    if (slave_ >= 0)
        ::close(slave_);
    master_ = slave_ = -1;
    slavePath_.clear();
}

bool Pty::toggleSpeed(std::string& error)
{
    if (slave_ < 0) {
        error = "pty is closed";
        return false;
    }
    termios t{};
    if (tcgetattr(slave_, &t) != 0) {
        error = errnoText("tcgetattr");
        return false;
    }
    const speed_t next = cfgetospeed(&t) == B1200 ? B2400 : B1200;
    cfsetispeed(&t, next);
    cfsetospeed(&t, next);
    if (tcsetattr(slave_, TCSANOW, &t) != 0) {
        error = errnoText("tcsetattr");
        return false;
    }
    return true;
}

bool Pty::reclaimSpeed(std::string& error)
{
    if (slave_ < 0)
        return true;
    termios t{};
    if (tcgetattr(slave_, &t) != 0) {
        error = errnoText("tcgetattr");
        return false;
    }
    const speed_t now = cfgetospeed(&t);
    if (now == B1200 || now == B2400)
        return true;
    return toggleSpeed(error);
}

bool publishLink(const std::string& link, const std::string& target, std::string& error)
{
    struct stat st {};
    if (lstat(link.c_str(), &st) == 0 && !S_ISLNK(st.st_mode)) {
        error = link + " exists and is not a symlink";
        return false;
    }
    // Build the new link beside the old one and rename it over, so the name
    // never points nowhere while a product may be scanning the directory.
    const auto slash = link.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : link.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? link : link.substr(slash + 1);
    const std::string temp = dir + "." + base + ".new" + std::to_string(getpid());
    ::unlink(temp.c_str());
    if (symlink(target.c_str(), temp.c_str()) != 0) {
        error = errnoText(("symlink " + temp).c_str());
        return false;
    }
    if (rename(temp.c_str(), link.c_str()) != 0) {
        error = errnoText(("rename to " + link).c_str());
        ::unlink(temp.c_str());
        return false;
    }
    return true;
}

void removeLink(const std::string& link, const std::string& target)
{
    char buf[PATH_MAX];
    const ssize_t n = readlink(link.c_str(), buf, sizeof buf - 1);
    if (n < 0)
        return;
    if (std::string(buf, static_cast<std::size_t>(n)) == target)
        ::unlink(link.c_str());
}

} // namespace boardsim
