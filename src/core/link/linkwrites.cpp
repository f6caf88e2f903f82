// BoardLink: how bytes reach the board. A serial port takes them in chunks
// with a gap; a board behind a small input buffer (WebREPL) gets pieces no
// larger than that buffer, and long raw REPL commands in raw-paste mode.
#include "boardlink.h"

#include "boardtransport.h"
#include "replbytes.h"

using namespace replbytes;

namespace {
constexpr int kChunkGapMs = 100;
// Raw-paste mode (MicroPython 1.14 and later): Ctrl-E "A" Ctrl-A asks for it;
// the board answers "R" and 1 when it takes it, then the window as 16 bits.
const QByteArray kRawPasteRequest = QByteArrayLiteral("\x05"
                                                      "A"
                                                      "\x01");
constexpr char kWindowGrant = 0x01;
constexpr int kRawPasteTimeoutMs = 5000;
// Commands this short go out in one piece; the raw REPL reads them at once.
constexpr int kShortCommand = 128;
// What one answered piece of a pasted command may hold (below the smallest ring).
constexpr int kAckedPiece = 240;
enum RawPaste { RawPasteNo = 0, RawPasteYes = 1 };
enum PasteResult { Pasted, PasteFailed, PasteRefused };

// Marks a paste in flight (bytes are only buffered) for as long as it lives.
struct PastingScope {
    explicit PastingScope(bool& flag) : m_flag(flag) { m_flag = true; }
    ~PastingScope() { m_flag = false; }
    PastingScope(const PastingScope&) = delete;
    PastingScope& operator=(const PastingScope&) = delete;
    bool& m_flag;
};

// At most max bytes of data from offset, never ending inside a UTF-8
// character: each piece is one WebREPL text message.
int wholeCharacters(const QByteArray& data, int offset, int max)
{
    int n = qMin(max, data.size() - offset);
    while (n > 1 && offset + n < data.size() && (static_cast<unsigned char>(data.at(offset + n)) & 0xC0) == 0x80)
        --n;
    return n;
}
} // namespace

int BoardLink::pasteLong(const QByteArray& data)
{
    // A raw REPL command (pasted scripts and calls end with Ctrl-D): longer
    // ones go out in the windows the board grants, or behind a small input
    // ring in pieces the board answers one by one.
    const bool command = m_state == MC_RAW && data.size() > kShortCommand && data.endsWith(kCtrlD) &&
                         !data.startsWith(kCtrlC);
    if (command && m_transport->inputWindow() > 0 && data.size() > m_transport->inputWindow())
        return pasteAcked(data.chopped(1));
    const bool paste = command && (m_pasteCommands || m_transport->inputWindow() > 0) && m_rawPaste != RawPasteNo;
    return paste ? rawPaste(data.chopped(1)) : PasteRefused;
}

int BoardLink::pasteAcked(const QByteArray& code)
{
    // Raw-paste windows are as large as an ESP8266's whole ring (256 bytes, of
    // which 255 hold input) and nothing tells when the board has read part of
    // one. So a short loader, sent whole into an empty ring, reads the code in
    // pieces, each after its length in two hex digits, and answers each; a
    // piece goes only after the answer to the one before. Pieces end between
    // characters, as every WebREPL message must.
    const QByteArray loader = QByteArrayLiteral("def _pk(n):\n import sys\n i=sys.stdin.buffer;b=bytearray()\n"
                                                " while len(b)<n:b+=i.read(int(i.read(2),16));sys.stdout.write('\\x01')\n"
                                                " return bytes(b).decode()\nexec(compile(_pk(") +
                              QByteArray::number(code.size()) + QByteArrayLiteral("),'<stdin>','exec'))\n") + kCtrlD;
    const int from = m_buffer.size();
    const PastingScope pasting(m_pasting);
    if (!m_transport->send(loader))
        return PasteFailed;
    // "OK" once the loader is taken, then one 0x01 for each piece read.
    int pieces = 0;
    int sent = 0;
    for (;;) {
        const QByteArray fresh = m_buffer.mid(from);
        const bool accepted = fresh.startsWith(kRawAccepted);
        if (!accepted && (fresh.size() >= kRawAccepted.size() || !kRawAccepted.startsWith(fresh)))
            return PasteFailed;
        const QByteArray answers = accepted ? fresh.mid(kRawAccepted.size()) : QByteArray();
        int acks = 0;
        while (acks < pieces && acks < answers.size() && answers.at(acks) == kWindowGrant)
            ++acks;
        // Anything else before the last answer is a traceback (a board that
        // cannot run the loader); after it, the command's own output.
        if (acks < pieces && acks < answers.size())
            return PasteFailed;
        if (accepted && acks == pieces) {
            if (sent == code.size())
                break;
            const int n = wholeCharacters(code, sent, kAckedPiece);
            if (!m_transport->send(QByteArray::number(n, 16).rightJustified(2, '0') + code.mid(sent, n)))
                return PasteFailed;
            sent += n;
            ++pieces;
            continue;
        }
        if (waitLoop(kRawPasteTimeoutMs, true, false) != 0)
            return PasteFailed;
    }
    // From here the board answers as the raw REPL does after "OK".
    m_buffer.remove(from + kRawAccepted.size(), pieces);
    m_pasting = false;
    splitByState();
    return Pasted;
}

bool BoardLink::write(const QByteArray& data)
{
    noteSent(data);
    if (data.contains(kCtrlB))
        m_bannerClock.start();
    if (const int pasted = pasteLong(data); pasted != PasteRefused)
        return pasted == Pasted;
    if (m_transport->inputWindow() > 0)
        return sendWindowed(data);
    const int chunk = transferSize();
    int sent = 0;
    while (isOpen() && sent < data.size()) {
        if (sent > 0 && !qDelay(kChunkGapMs))
            return false;
        const int n = qMin(chunk, data.size() - sent);
        if (!m_transport->send(data.mid(sent, n)))
            return false;
        sent += n;
    }
    return isOpen();
}

bool BoardLink::writeScript(const QByteArray& command)
{
    const int window = m_transport->inputWindow();
    if (window <= 0 || command.size() <= window || !command.endsWith(kCtrlD))
        return write(command);
    noteSent(command);
    return pasteAcked(command.chopped(1)) == Pasted;
}

bool BoardLink::send(const QByteArray& data)
{
    noteSent(data);
    if (const int pasted = pasteLong(data); pasted != PasteRefused)
        return pasted == Pasted;
    if (m_transport->inputWindow() > 0)
        return sendWindowed(data);
    return m_transport->send(data);
}

bool BoardLink::sendWindowed(const QByteArray& data)
{
    const int window = m_transport->inputWindow();
    int sent = 0;
    while (isOpen() && sent < data.size()) {
        // Whatever the board answers (an echo, a prompt) shows it has read
        // what came before; a board that reads without answering gets a moment.
        if (sent > 0 && !qDelay(kChunkGapMs))
            return false;
        const int n = wholeCharacters(data, sent, window);
        if (!m_transport->send(data.mid(sent, n)))
            return false;
        sent += n;
    }
    return isOpen();
}

int BoardLink::rawPaste(const QByteArray& code)
{
    const int from = m_buffer.size();
    const PastingScope pasting(m_pasting);
    QByteArray fresh;
    const auto take = [&](int timeoutMs) {
        if (m_buffer.size() <= from + fresh.size() && waitLoop(timeoutMs, true, false) != 0)
            return false;
        fresh = m_buffer.mid(from);
        return true;
    };
    const auto give = [&](int consumed) {
        m_buffer.remove(from, consumed);
        fresh.remove(0, consumed);
    };
    if (!m_transport->send(kRawPasteRequest))
        return PasteFailed;
    while (fresh.size() < 2 || (fresh.startsWith("R\x01") && fresh.size() < 4)) {
        if (fresh.contains(kRawBanner) || (fresh.size() >= 2 && !fresh.startsWith('R')))
            break;
        if (!take(kRawPasteTimeoutMs))
            return PasteFailed;
    }
    if (!fresh.startsWith("R\x01")) {
        // An older board: "R" and 0, or a fresh raw REPL (it took Ctrl-A as a
        // new start). Either way it waits for the command as usual.
        m_rawPaste = RawPasteNo;
        const int banner = fresh.indexOf(kRawBanner);
        if (banner >= 0) {
            while (fresh.indexOf(kRawEnd, banner) < 0)
                if (!take(kRawPasteTimeoutMs))
                    return PasteFailed;
            give(fresh.indexOf(kRawEnd, banner) + 1);
        } else {
            give(2);
        }
        m_pasting = false;
        return PasteRefused;
    }
    m_rawPaste = RawPasteYes;
    const int window = static_cast<unsigned char>(fresh.at(2)) | static_cast<unsigned char>(fresh.at(3)) << 8;
    give(4);
    if (window <= 0)
        return PasteFailed;
    int remain = window;
    int sent = 0;
    while (sent < code.size()) {
        while (!fresh.isEmpty()) {
            const char c = fresh.at(0);
            give(1);
            if (c == kWindowGrant) {
                remain += window;
            } else if (c == kCtrlD) {
                // The board ended the paste itself (an interrupt): agree and stop.
                m_transport->send(QByteArray(1, kCtrlD));
                return PasteFailed;
            } else {
                return PasteFailed;
            }
        }
        if (remain == 0) {
            if (!take(kRawPasteTimeoutMs))
                return PasteFailed;
            continue;
        }
        const int n = wholeCharacters(code, sent, remain);
        if (!m_transport->send(code.mid(sent, n)))
            return PasteFailed;
        remain -= n;
        sent += n;
        fresh = m_buffer.mid(from);
    }
    if (!m_transport->send(QByteArray(1, kCtrlD)))
        return PasteFailed;
    // Grants may still come before the board acknowledges the end.
    for (;;) {
        while (!fresh.isEmpty() && fresh.at(0) == kWindowGrant)
            give(1);
        if (!fresh.isEmpty())
            break;
        if (!take(kRawPasteTimeoutMs))
            return PasteFailed;
    }
    if (fresh.at(0) != kCtrlD)
        return PasteFailed;
    // From here the board answers as the raw REPL does after "OK": say so,
    // so that nothing above can tell a paste from a typed command.
    m_buffer.replace(from, 1, kRawAccepted);
    m_pasting = false;
    splitByState();
    return Pasted;
}
