#include "transports.h"

#include "serialtransport.h"
#include "tcpserialtransport.h"
#include "webrepltransport.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QUrl>

namespace {
// One row per kind of network address; anything else is a local port.
struct NetworkKind {
    const char* scheme;
    const char* form; // what a valid address looks like, for messages
    QUrl (*urlFor)(const QString& name);
    std::unique_ptr<BoardTransport> (*make)();
};

const NetworkKind kNetworkKinds[] = {
    {"ws", QT_TRANSLATE_NOOP("Transports", "%1 is not a WebREPL address (ws://HOST[:PORT])"), WebReplTransport::urlFor,
     [] { return std::unique_ptr<BoardTransport>(new WebReplTransport); }},
    {"rfc2217", QT_TRANSLATE_NOOP("Transports", "%1 is not a network serial port (rfc2217://HOST:PORT)"),
     TcpSerialTransport::urlFor,
     [] { return std::unique_ptr<BoardTransport>(new TcpSerialTransport(TcpSerialTransport::Mode::Rfc2217)); }},
    {"socket", QT_TRANSLATE_NOOP("Transports", "%1 is not a network serial port (socket://HOST:PORT)"),
     TcpSerialTransport::urlFor,
     [] { return std::unique_ptr<BoardTransport>(new TcpSerialTransport(TcpSerialTransport::Mode::Raw)); }},
};

const NetworkKind* kindOf(const QString& port)
{
    const QString text = port.trimmed();
    for (const NetworkKind& kind : kNetworkKinds)
        if (text.startsWith(QLatin1String(kind.scheme) + QLatin1String("://"), Qt::CaseInsensitive))
            return &kind;
    return nullptr;
}
} // namespace

namespace Transports {

bool isNetwork(const QString& port)
{
    return kindOf(port) != nullptr;
}

bool takesBaudRate(const QString& port)
{
    const NetworkKind* kind = kindOf(port);
    return !kind || qstrcmp(kind->scheme, "rfc2217") == 0;
}

bool needsPassword(const QString& port)
{
    return WebReplTransport::isAddress(port);
}

QString addressProblem(const QString& port)
{
    const NetworkKind* kind = kindOf(port);
    if (!kind || kind->urlFor(port).isValid())
        return QString();
    return QCoreApplication::translate("Transports", kind->form).arg(port);
}

QString shortName(const QString& port)
{
    const NetworkKind* kind = kindOf(port);
    const QUrl url = kind ? kind->urlFor(port) : QUrl();
    if (!url.isValid())
        return QFileInfo(port).fileName();
    return url.host() + QLatin1Char('_') + QString::number(url.port());
}

std::unique_ptr<BoardTransport> create(const QString& port)
{
    const NetworkKind* kind = kindOf(port);
    return kind ? kind->make() : std::make_unique<SerialTransport>();
}

} // namespace Transports
