#include "connector/net/detail/ReadableFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace connector::net::detail {

void requireReadableFile(const std::string& who, const std::string& what, const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  int error = fd < 0 ? errno : 0;
  if (fd >= 0) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
      error = errno;
    } else if (S_ISDIR(status.st_mode)) {
      error = EISDIR;
    }
    ::close(fd);
  }
  if (error != 0) {
    throw std::runtime_error(who + " cannot read the " + what + " '" + path +
                             "': " + std::strerror(error));
  }
}

}  // namespace connector::net::detail
