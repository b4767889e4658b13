#pragma once
// Ends a TCP connection of this process from the server side, found by its two ports. The HTTP
// server hands its handlers no socket, and a coordinator that vanishes mid-request is one of the
// faults the worker must survive.

namespace corvane::dev {

// Shuts down (both directions) the socket whose local port is `localPort` and whose peer port
// is `remotePort`. Returns false when no such socket is open.
bool shutdownConnection(int localPort, int remotePort);

}  // namespace corvane::dev
