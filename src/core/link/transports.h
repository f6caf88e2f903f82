#pragma once

#include <QString>

#include <memory>

class BoardTransport;

// What a port string names, and the transport that reaches it. The link, the
// connection popup and the CLI all ask here, so a new kind of port is one
// transport file and one line in create().
namespace Transports {
// A network address (ws://, rfc2217://, socket://) rather than a local port.
bool isNetwork(const QString& port);
// Whether the baud rate means anything on the way: a local port, or an
// rfc2217:// port whose server sets it.
bool takesBaudRate(const QString& port);
// Whether reaching the port takes a WebREPL password.
bool needsPassword(const QString& port);
// Why a network address names nothing that can be reached; empty when it
// does, and for every local port.
QString addressProblem(const QString& port);
// HOST_PORT for a network port, the device's file name for a local one.
QString shortName(const QString& port);
std::unique_ptr<BoardTransport> create(const QString& port);
} // namespace Transports
