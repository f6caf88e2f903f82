#pragma once

#include <QString>

// Where pelkam-cli takes a WebREPL password from: a file named on the command
// line, the environment, or the terminal without echo. Never the command line
// itself, where every user of the machine could read it.
struct WebReplPassword {
    QString password;
    QString problem; // empty when a password was found
};

WebReplPassword findWebReplPassword(const QString& passwordFile, const QString& address);
