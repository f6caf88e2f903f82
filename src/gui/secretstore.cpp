#include "secretstore.h"

#include <QEventLoop>
#include <qt5keychain/keychain.h>

namespace {
const QString kService = QStringLiteral("Pelkam WebREPL");

// Jobs report through a signal even when they fail at once.
void runJob(QKeychain::Job& job, const QString& address)
{
    job.setAutoDelete(false);
    job.setInsecureFallback(false);
    job.setKey(address);
    QEventLoop loop;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    job.start();
    loop.exec();
}
} // namespace

QString SecretStore::read(const QString& address)
{
    QKeychain::ReadPasswordJob job(kService);
    runJob(job, address);
    return job.error() == QKeychain::NoError ? job.textData() : QString();
}

bool SecretStore::write(const QString& address, const QString& password, QString* problem)
{
    QKeychain::WritePasswordJob job(kService);
    job.setTextData(password);
    runJob(job, address);
    if (job.error() == QKeychain::NoError)
        return true;
    *problem = job.errorString();
    return false;
}

void SecretStore::remove(const QString& address)
{
    QKeychain::DeletePasswordJob job(kService);
    runJob(job, address);
}

QString SecretStore::remember(const QString& address, const QString& password, bool remember)
{
    QString problem;
    if (!remember)
        remove(address);
    else
        write(address, password, &problem);
    return problem;
}
