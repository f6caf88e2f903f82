#include "boarderrors.h"

#include <QCoreApplication>
#include <QRegularExpression>

namespace {
struct Known {
    int number;
    const char* name;
    const char* meaning;
};

// The classic numbers, which every MicroPython port uses.
const Known kKnown[] = {
    {1, "EPERM", QT_TRANSLATE_NOOP("BoardErrors", "the operation is not permitted")},
    {2, "ENOENT", QT_TRANSLATE_NOOP("BoardErrors", "no such file or folder")},
    {5, "EIO", QT_TRANSLATE_NOOP("BoardErrors", "the flash could not be read or written")},
    {9, "EBADF", QT_TRANSLATE_NOOP("BoardErrors", "the file is not open")},
    {12, "ENOMEM", QT_TRANSLATE_NOOP("BoardErrors", "the board ran out of memory")},
    {13, "EACCES", QT_TRANSLATE_NOOP("BoardErrors", "permission denied")},
    {17, "EEXIST", QT_TRANSLATE_NOOP("BoardErrors", "it already exists")},
    {19, "ENODEV", QT_TRANSLATE_NOOP("BoardErrors", "no file system is mounted there")},
    {20, "ENOTDIR", QT_TRANSLATE_NOOP("BoardErrors", "a part of the path is a file, not a folder")},
    {21, "EISDIR", QT_TRANSLATE_NOOP("BoardErrors", "it is a folder")},
    {22, "EINVAL", QT_TRANSLATE_NOOP("BoardErrors", "invalid argument")},
    {28, "ENOSPC", QT_TRANSLATE_NOOP("BoardErrors", "not enough room on the board")},
    {30, "EROFS", QT_TRANSLATE_NOOP("BoardErrors", "the file system is read-only")},
    {36, "ENAMETOOLONG", QT_TRANSLATE_NOOP("BoardErrors", "the name is too long")},
    {39, "ENOTEMPTY", QT_TRANSLATE_NOOP("BoardErrors", "the folder is not empty")},
};

const Known* byNumber(int number)
{
    for (const Known& k : kKnown)
        if (k.number == number)
            return &k;
    return nullptr;
}

QString cleaned(const QByteArray& text)
{
    QString s = QString::fromUtf8(text);
    s.remove(QRegularExpression(QStringLiteral("[\\x00-\\x08\\x0b-\\x1f]")));
    return s.trimmed();
}
} // namespace

namespace BoardErrors {

int errnoIn(const QByteArray& text)
{
    const QString s = cleaned(text);
    // "[Errno 2] ENOENT", "OSError: 28", "OSError: [Errno 2] ENOENT", "err(21)", "28".
    static const QRegularExpression numbered(QStringLiteral(
        "(?:\\[Errno (\\d+)\\])|(?:OSError: (\\d+)\\b)|(?:^err\\((\\d+)\\)$)|(?:^(\\d{1,3})$)|(?:Errno (\\d+))"));
    const QRegularExpressionMatch m = numbered.match(s);
    if (m.hasMatch())
        for (int group = 1; group <= 5; ++group)
            if (!m.captured(group).isEmpty())
                return m.captured(group).toInt();
    for (const Known& k : kKnown)
        if (s.contains(QRegularExpression(QStringLiteral("\\b%1\\b").arg(QLatin1String(k.name)))))
            return k.number;
    return -1;
}

QString explain(const QByteArray& text)
{
    const int number = errnoIn(text);
    if (number < 0)
        return cleaned(text);
    if (const Known* k = byNumber(number))
        return QStringLiteral("%1: %2").arg(QLatin1String(k->name),
                                            QCoreApplication::translate("BoardErrors", k->meaning));
    return QCoreApplication::translate("BoardErrors", "error number %1").arg(number);
}

bool noSpace(const QByteArray& text)
{
    return errnoIn(text) == kNoSpace;
}

QString transferFault(const QByteArray& reply)
{
    // The status digits our upload scripts send; "8" carries an error text
    // of its own unless the script ended without a verdict.
    static const char* const kFaults[] = {
        nullptr,
        QT_TRANSLATE_NOOP("BoardErrors", "the board did not receive the size of the transfer: bytes were lost on the line"),
        QT_TRANSLATE_NOOP("BoardErrors", "the board stopped receiving the data: bytes were lost on the line"),
        QT_TRANSLATE_NOOP("BoardErrors", "the board did not receive the closing checksum: bytes were lost on the line"),
        QT_TRANSLATE_NOOP("BoardErrors", "the data arrived damaged: bytes were lost or changed on the line"),
        QT_TRANSLATE_NOOP("BoardErrors", "the copy written on the board differs from what was sent"),
        QT_TRANSLATE_NOOP("BoardErrors", "the board ran out of memory"),
        QT_TRANSLATE_NOOP("BoardErrors", "the transfer was stopped"),
        QT_TRANSLATE_NOOP("BoardErrors", "the board's script ended without a verdict"),
    };
    if (reply.size() < 2 || reply.at(0) != '#' || reply.at(1) < '1' || reply.at(1) > '8')
        return QString();
    if (reply.at(1) == '8' && !cleaned(reply.mid(2)).isEmpty())
        return QString();
    return QCoreApplication::translate("BoardErrors", kFaults[reply.at(1) - '0']);
}

} // namespace BoardErrors
