#include "runtime/display_check.h"

#include <xcb/xcb.h>

#include <cstdlib>

namespace boxdim {

namespace {

// What xcb_connection_has_error's codes mean to someone starting the program.
std::string connection_problem(int code) {
  switch (code) {
    case XCB_CONN_CLOSED_PARSE_ERR:
      return "is not a display name";
    case XCB_CONN_CLOSED_INVALID_SCREEN:
      return "has no such screen";
    case XCB_CONN_ERROR:
      return "cannot be reached: no X server there, or access refused";
    default:
      return "refused the connection";
  }
}

}  // namespace

std::string display_problem() {
  const char* platform = std::getenv("QT_QPA_PLATFORM");
  if (platform != nullptr && *platform != '\0' && std::string(platform).rfind("xcb", 0) != 0) {
    return "";
  }
  const char* display = std::getenv("DISPLAY");
  if (display == nullptr || *display == '\0') return "DISPLAY is not set";
  xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
  const int error = xcb_connection_has_error(connection);
  xcb_disconnect(connection);
  if (error == 0) return "";
  return std::string("DISPLAY '") + display + "' " + connection_problem(error);
}

}  // namespace boxdim
