#pragma once

#include <QString>

// Remembered WebREPL passwords, kept in the desktop's secret store (Secret
// Service, KWallet) and never in Pelkam.conf. Each call waits for the store.
namespace SecretStore {
// The password kept for address; empty when none is kept or no store runs.
QString read(const QString& address);
// False with *problem set when no secret store takes it.
bool write(const QString& address, const QString& password, QString* problem);
void remove(const QString& address);
// Keeps (remember) or forgets the password for address; returns what kept a
// store from taking it, empty when all went well.
QString remember(const QString& address, const QString& password, bool remember);
} // namespace SecretStore
