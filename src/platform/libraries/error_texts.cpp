#include "platform/libraries/error_texts.h"

#include "base/find.h"

namespace {

struct ErrorText {
  DWORD code;
  const char* text;
};

/// In ascending order.
constexpr ErrorText ERROR_TEXTS[] = {
    {0, "The operation completed successfully."},
    {1, "Incorrect function."},
    {2, "The system cannot find the file specified."},
    {3, "The system cannot find the path specified."},
    {4, "The system cannot open the file."},
    {5, "Access is denied."},
    {6, "The handle is invalid."},
    {8, "Not enough storage is available to process this command."},
    {13, "The data is invalid."},
    {14, "Not enough storage is available to complete this operation."},
    {18, "There are no more files."},
    {21, "The device is not ready."},
    {31, "A device attached to the system is not functioning."},
    {32, "The process cannot access the file because it is being used by another process."},
    {50, "The request is not supported."},
    {53, "The network path was not found."},
    {54, "The network is busy."},
    {55, "The specified network resource or device is no longer available."},
    {59, "An unexpected network error occurred."},
    {64, "The specified network name is no longer available."},
    {65, "Network access is denied."},
    {67, "The network name cannot be found."},
    {80, "The file exists."},
    {84, "Storage to process this request is not available."},
    {87, "The parameter is incorrect."},
    {89, "The system cannot start another process at this time."},
    {109, "The pipe has been ended."},
    {110, "The system cannot open the device or file specified."},
    {111, "The file name is too long."},
    {112, "There is not enough space on the disk."},
    {120, "This function is not supported on this system."},
    {121, "The semaphore timeout period has expired."},
    {122, "The data area passed to a system call is too small."},
    {126, "The specified module could not be found."},
    {127, "The specified procedure could not be found."},
    {170, "The requested resource is in use."},
    {183, "Cannot create a file when that file already exists."},
    {230, "The pipe state is invalid."},
    {232, "The pipe is being closed."},
    {234, "More data is available."},
    {258, "The wait operation timed out."},
    {259, "No more data is available."},
    {487, "Attempt to access invalid address."},
    {998, "Invalid access to memory location."},
    {1060, "The specified service does not exist as an installed service."},
    {1062, "The service has not been started."},
    {1130, "Not enough server storage is available to process this command."},
    {1168, "Element not found."},
    {1222, "The network is not present or not started."},
    {1223, "The operation was canceled by the user."},
    {1227, "The network transport endpoint already has an address associated with it."},
    {1229, "An operation was attempted on a nonexistent network connection."},
    {1231,
     "The network location cannot be reached. For information about network "
     "troubleshooting, see Windows Help."},
    {1237, "The operation could not be completed. A retry should be performed."},
    {1314, "A required privilege is not held by the client."},
    {1359, "An internal error occurred."},
    {1450, "Insufficient system resources exist to complete the requested service."},
    {1460, "This operation returned because the timeout period expired."},
    {1722, "The RPC server is unavailable."},
    {1726, "The remote procedure call failed."},
    {1739,
     "No network address is available to use to construct a universal unique identifier "
     "(UUID)."},
    {5010, "The object already exists."},
    {10049, "The requested address is not valid in its context."},
    {10050, "A socket operation encountered a dead network."},
};

}  // namespace

const char* error_text(DWORD code) {
  const auto* const found = find_with(ERROR_TEXTS, code, &ErrorText::code);
  return found != nullptr ? found->text : nullptr;
}
