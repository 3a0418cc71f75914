/**
 * @file
 * Tells the service manager that started this program how it is doing, so that what depends on the program is
 * started once it is ready and not before. It is one datagram to the Unix socket that the environment names.
 *
 *     const int error = vexa::notify_service_manager("READY=1");
 */
#ifndef VEXA_SERVICE_NOTIFY_H
#define VEXA_SERVICE_NOTIFY_H

#include <string_view>

namespace vexa {

/**
 * Sends a state to the socket that NOTIFY_SOCKET names: an absolute path, or an abstract name behind "@".
 * Without that variable nobody asked, and nothing is sent. Waits for nobody.
 * @param state  assignments, one a line: "READY=1", "STOPPING=1"
 * @return 0 when it was sent or nobody asked, otherwise the errno that says why not
 */
int notify_service_manager(std::string_view state);

} // namespace vexa

#endif
