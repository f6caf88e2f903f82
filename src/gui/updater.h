#pragma once

#include <QString>

// Update checking. The only real back end is macOS's Sparkle; elsewhere the
// package manager updates the program, so the check does nothing.
class TarvelUpdater {
public:
    virtual ~TarvelUpdater() = default;
    virtual void checkForUpdates() = 0;
};

class NullUpdater : public TarvelUpdater {
public:
    explicit NullUpdater(const QString& feedUrl) : m_feedUrl(feedUrl) {}
    void checkForUpdates() override {}
    QString feedUrl() const { return m_feedUrl; }

private:
    QString m_feedUrl;
};
