#include "startup.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QLibraryInfo>
#include <QLocale>
#include <QSettings>
#include <QTranslator>

static void initTranslationResources()
{
    Q_INIT_RESOURCE(lang);
}

namespace startup {

namespace {
const QString kLanguageKey = QStringLiteral("UI/Language");
} // namespace

void setIdentity(QCoreApplication& app)
{
    app.setOrganizationName(QStringLiteral("Tarvel"));
    app.setApplicationName(QStringLiteral("Pelkam"));
    app.setApplicationVersion(QStringLiteral(PELKAM_VERSION));
    QCoreApplication::addLibraryPath(QCoreApplication::applicationDirPath());
}

void addOptions(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        QCoreApplication::translate("main", "Tarvel micropython powered boards management utility."));
    parser.addOption(QCommandLineOption(
        QStringLiteral("reset"), QCoreApplication::translate("main", "Reset all settings to their default value.")));
    parser.addOption(QCommandLineOption(QStringList{QStringLiteral("l"), QStringLiteral("lang")},
                                        QCoreApplication::translate("main", "Set UI language to <lang>."),
                                        QStringLiteral("lang")));
}

void applyOptions(const QCommandLineParser& parser, QSettings& settings)
{
    // The numeric language code matches no translation file on purpose: a
    // fresh installation stays untranslated until the user picks a language.
    const int systemLanguage = static_cast<int>(QLocale::system().language());
    if (parser.isSet(QStringLiteral("reset"))) {
        settings.clear();
        settings.setValue(kLanguageKey, systemLanguage);
    }
    if (parser.isSet(QStringLiteral("lang")))
        settings.setValue(kLanguageKey, parser.value(QStringLiteral("lang")));
    if (!settings.contains(kLanguageKey))
        settings.setValue(kLanguageKey, systemLanguage);
}

QString translationFilter(const QString& language)
{
    return QStringLiteral("*_%1*.qm").arg(language.section(QLatin1Char('_'), 0, 0));
}

QList<QTranslator*> loadTranslations(QCoreApplication& app, QSettings* settings, const QString& dir)
{
    initTranslationResources();
    QList<QTranslator*> installed;
    QSettings own;
    QSettings* store = settings ? settings : &own;
    const QString language = store->value(kLanguageKey, QLocale::system().name()).toString();

    auto tryLoad = [&](const QString& file, const QString& directory) {
        auto* translator = new QTranslator(&app);
        if (translator->load(file, directory) && app.installTranslator(translator))
            installed.append(translator);
        else
            delete translator;
    };

    // Sizes and dates (the PC pane's among them) follow the chosen language too.
    const QLocale chosen(language);
    if (chosen.language() != QLocale::C && language.contains(QLatin1Char('_')))
        QLocale::setDefault(chosen);
    tryLoad(QStringLiteral("qt_") + language, QLibraryInfo::location(QLibraryInfo::TranslationsPath));
    const QString folder = QStringLiteral(":/") + dir + QLatin1Char('/');
    const QStringList files = QDir(folder).entryList({translationFilter(language)}, QDir::Files);
    for (const QString& file : files)
        tryLoad(file, folder);
    return installed;
}

} // namespace startup
