#pragma once

#include <QString>

// Update checking. The only real back end is macOS's Sparkle; elsewhere the
// package manager updates the program, and the check says so.
class TarvelUpdater {
public:
    virtual ~TarvelUpdater() = default;
    virtual void checkForUpdates() = 0;
    // False where the program has no updater of its own.
    virtual bool available() const { return true; }
};

class NullUpdater : public TarvelUpdater {
public:
    explicit NullUpdater(const QString& feedUrl) : m_feedUrl(feedUrl) {}
    void checkForUpdates() override {}
    bool available() const override { return false; }
    QString feedUrl() const { return m_feedUrl; }

private:
    QString m_feedUrl;
};
