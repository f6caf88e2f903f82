#include "pelkamwindow.h"
#include "startup.h"
#include "themedetector.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QIcon>
#include <QSettings>
#include <QTranslator>

#include <csignal>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    // A file-size limit fails a download's write, which is reported, rather than killing the window.
    std::signal(SIGXFSZ, SIG_IGN);
    startup::setIdentity(app);
    app.setWindowIcon(QIcon(QStringLiteral(":/pelkam.ico")));

    QCommandLineParser parser;
    parser.addVersionOption();
    parser.addHelpOption();
    ThemeDetector::addOptions(parser);
    startup::addOptions(parser);
    parser.addOption(QCommandLineOption(
        QStringLiteral("port"), QCoreApplication::translate("main", "Offer this device path in the connection popup."),
        QStringLiteral("path")));
    parser.process(app);

    {
        QSettings settings;
        startup::applyOptions(parser, settings);
    }
    ThemeDetector::init(&parser, QStringLiteral("UI/DarkMode"));
    const QList<QTranslator*> translators = startup::loadTranslations(app, nullptr, QStringLiteral("lang"));

    auto* window = new PelkamWindow();
    if (parser.isSet(QStringLiteral("port")))
        window->setOfferedPort(parser.value(QStringLiteral("port")));
    window->readSettings();
    window->show();
    const int code = app.exec();
    window->writeSettings();
    delete window;
    for (QTranslator* translator : translators) {
        QCoreApplication::removeTranslator(translator);
        delete translator;
    }
    return code;
}
