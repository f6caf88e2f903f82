#pragma once

#include <QList>
#include <QString>
#include <QStringList>

class QCoreApplication;
class QCommandLineParser;
class QSettings;
class QTranslator;

namespace startup {

// Organisation, application name and version: what QSettings and --version use.
void setIdentity(QCoreApplication& app);

// Adds the options of the program to a parser that already has help/version.
void addOptions(QCommandLineParser& parser);

// Applies --reset and --lang to the settings store, and stores the system
// language's numeric code when no language was ever stored.
void applyOptions(const QCommandLineParser& parser, QSettings& settings);

// The name filter that finds a language's translations in a resource folder.
QString translationFilter(const QString& language);

// Installs Qt's and the program's translations for "UI/Language"; returns the
// installed translators (the caller removes and deletes them at exit).
QList<QTranslator*> loadTranslations(QCoreApplication& app, QSettings* settings = nullptr,
                                     const QString& dir = QStringLiteral("lang"));

} // namespace startup
