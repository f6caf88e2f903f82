#include "startup.h"
#include "testsupport.h"
#include "themedetector.h"

#include <QCommandLineParser>
#include <QLocale>
#include <QTranslator>
#include <QtTest>

class TestStartup : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    QStringList apply(const QStringList& args)
    {
        QCommandLineParser parser;
        parser.addHelpOption();
        startup::addOptions(parser);
        parser.process(QStringList{QStringLiteral("pelkam")} + args);
        QSettings settings;
        startup::applyOptions(parser, settings);
        return settings.allKeys();
    }
    static void unload(const QList<QTranslator*>& list)
    {
        for (QTranslator* t : list) {
            QCoreApplication::removeTranslator(t);
            delete t;
        }
    }

private slots:
    void initTestCase() { isolateSettings(m_dir); }

    void commandLineAndSettings()
    {
        QSettings().setValue(QStringLiteral("UI/Dir"), QStringLiteral("/tmp"));
        apply({QStringLiteral("--reset"), QStringLiteral("--lang"), QStringLiteral("ru_RU")});
        QCOMPARE(QSettings().value(QStringLiteral("UI/Language")).toString(), QStringLiteral("ru_RU"));
        QVERIFY(!QSettings().contains(QStringLiteral("UI/Dir")));
        QList<QTranslator*> loaded = startup::loadTranslations(*QCoreApplication::instance());
        QVERIFY(!loaded.isEmpty());
        QCOMPARE(QCoreApplication::translate("PelkamWindow", "Connect"), QString::fromUtf8("Подключить"));
        // Sizes and dates in Russian too (the PC pane shows them through QLocale).
        QVERIFY(QLocale().formattedDataSize(27).startsWith(QString::fromUtf8("27 байт")));
        QVERIFY(QLocale().toString(QDate(2026, 11, 25), QLocale::LongFormat).contains(QString::fromUtf8("ноября")));
        unload(loaded);
        QLocale::setDefault(QLocale::c());

        apply({QStringLiteral("-l"), QStringLiteral("de_DE")});
        QCOMPARE(QSettings().value(QStringLiteral("UI/Language")).toString(), QStringLiteral("de_DE"));
        loaded = startup::loadTranslations(*QCoreApplication::instance());
        QCOMPARE(QCoreApplication::translate("PelkamWindow", "Connect"), QStringLiteral("Connect"));
        unload(loaded);

        // A first run stores the numeric language code, which matches no translation.
        QSettings().clear();
        apply({});
        QCOMPARE(QSettings().value(QStringLiteral("UI/Language")).toInt(),
                 static_cast<int>(QLocale::system().language()));
        apply({QStringLiteral("--reset")});
        QCOMPARE(QSettings().allKeys(), QStringList{QStringLiteral("UI/Language")});
    }

    void themeRule()
    {
        QVERIFY(ThemeDetector::isDarkWindowColor(QColor(0x30, 0x30, 0x30)));
        QVERIFY(!ThemeDetector::isDarkWindowColor(QColor(0x80, 0x80, 0x80)));
    }
};

QTEST_MAIN(TestStartup)
#include "tst_startup.moc"
