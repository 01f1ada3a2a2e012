#include "platform/foundation/ErrorNumber.h"

#include <cerrno>

namespace platform {

Error::Kind kindOfErrorNumber(int number) {
  switch (number) {
    case EPERM:
    case EACCES:
    case EROFS:
      return Error::Kind::notPermitted;
    case ENOENT:
    case ENOTDIR:
      return Error::Kind::absent;
    default:
      return Error::Kind::failed;
  }
}

}  // namespace platform
