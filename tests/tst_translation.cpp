#include "pelkamwindow.h"
#include "startup.h"
#include "testsupport.h"
#include "virtualboard.h"

#include <QAction>
#include <QGroupBox>
#include <QMenu>
#include <QProcess>
#include <QSet>
#include <QTabWidget>
#include <QTranslator>
#include <QXmlStreamReader>
#include <QtTest>

// The Russian translation is complete, and the window really shows it.
class TestTranslation : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    struct Entry {
        QString key; // context, source and comment
        QString translation;
        bool unfinished = false;
    };
    static QList<Entry> readTs(const QString& path)
    {
        QList<Entry> entries;
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return entries;
        QXmlStreamReader xml(&file);
        QString context;
        Entry entry;
        while (!xml.atEnd()) {
            if (xml.readNext() != QXmlStreamReader::StartElement)
                continue;
            if (xml.name() == QLatin1String("name")) {
                context = xml.readElementText();
            } else if (xml.name() == QLatin1String("source")) {
                entry = Entry{context + QLatin1Char('|') + xml.readElementText(), {}, false};
            } else if (xml.name() == QLatin1String("comment")) {
                entry.key += QLatin1Char('|') + xml.readElementText();
            } else if (xml.name() == QLatin1String("translation")) {
                entry.unfinished = xml.attributes().value(QStringLiteral("type")) == QLatin1String("unfinished");
                entry.translation = xml.readElementText();
                entries << entry;
            }
        }
        return entries;
    }
    // Every visible text of a window, by the object that shows it.
    static QMap<QString, QString> texts(PelkamWindow& w)
    {
        QMap<QString, QString> out;
        const auto add = [&out](const QString& id, QAction* a) {
            out.insert(id + QStringLiteral(" text"), a->text());
            if (!a->toolTip().isEmpty() && a->toolTip() != a->text())
                out.insert(id + QStringLiteral(" tip"), a->toolTip());
        };
        for (QAction* a : w.findChildren<QAction*>())
            if (!a->isSeparator() && !a->objectName().isEmpty())
                add(a->objectName(), a);
        const QList<QMenu*> menus = w.findChildren<QMenu*>();
        for (int m = 0; m < menus.size(); ++m) {
            if (!menus.at(m)->title().isEmpty())
                out.insert(QStringLiteral("menu %1 title").arg(m), menus.at(m)->title());
            const QList<QAction*> actions = menus.at(m)->actions();
            for (int i = 0; i < actions.size(); ++i)
                if (!actions.at(i)->isSeparator() && actions.at(i)->objectName().isEmpty() && !actions.at(i)->menu())
                    add(QStringLiteral("menu %1 entry %2").arg(m).arg(i), actions.at(i));
        }
        for (QTabWidget* t : w.findChildren<QTabWidget*>())
            for (int i = 0; i < t->count(); ++i)
                out.insert(t->widget(i)->objectName() + QStringLiteral(" tab"), t->tabText(i));
        for (QGroupBox* g : w.findChildren<QGroupBox*>())
            out.insert(g->objectName() + QStringLiteral(" group"), g->title());
        return out;
    }

private slots:
    void initTestCase() { isolateSettings(m_dir); }

    void tsCoversEverySource()
    {
        const QString lupdate = QString::fromLocal8Bit(qgetenv("PELKAM_LUPDATE"));
        QVERIFY2(!lupdate.isEmpty(), "PELKAM_LUPDATE is not set");
        const QString fresh = m_dir.filePath(QStringLiteral("fresh_ru_RU.ts"));
        QProcess p;
        p.start(lupdate, {QStringLiteral("-locations"), QStringLiteral("none"), QStringLiteral("-silent"),
                          VirtualBoard::sourceDir() + QStringLiteral("/src"), QStringLiteral("-ts"), fresh});
        QVERIFY(p.waitForFinished(120000));
        QCOMPARE(p.exitCode(), 0);
        QSet<QString> committed;
        for (const Entry& e : readTs(VirtualBoard::sourceDir() + QStringLiteral("/resources/lang/Pelkam_ru_RU.ts"))) {
            QVERIFY2(!e.unfinished && !e.translation.trimmed().isEmpty(), qPrintable(e.key));
            committed.insert(e.key);
        }
        QSet<QString> found;
        for (const Entry& e : readTs(fresh)) {
            QVERIFY2(committed.contains(e.key), qPrintable(QStringLiteral("not in the .ts: ") + e.key));
            found.insert(e.key);
        }
        for (const QString& key : qAsConst(committed))
            QVERIFY2(found.contains(key), qPrintable(QStringLiteral("no longer in the sources: ") + key));
        QVERIFY(found.size() > 200);
    }

    void windowInRussian()
    {
        QMap<QString, QString> english;
        {
            PelkamWindow w;
            english = texts(w);
        }
        QSettings().setValue(QStringLiteral("UI/Language"), QStringLiteral("ru_RU"));
        const QList<QTranslator*> translators = startup::loadTranslations(*qApp, nullptr, QStringLiteral("lang"));
        QVERIFY(!translators.isEmpty());
        QMap<QString, QString> russian;
        {
            PelkamWindow w;
            russian = texts(w);
        }
        for (QTranslator* t : translators) {
            QCoreApplication::removeTranslator(t);
            delete t;
        }
        QCOMPARE(russian.size(), english.size());
        int compared = 0;
        for (auto it = english.cbegin(); it != english.cend(); ++it) {
            if (it.value() == QLatin1String("DFU")) // a name, the same in Russian
                continue;
            QVERIFY2(russian.value(it.key()) != it.value(), qPrintable(it.key() + QStringLiteral(": ") + it.value()));
            ++compared;
        }
        QVERIFY(compared > 50);
        QVERIFY(russian.values().contains(QStringLiteral("Правка")));
        QVERIFY(russian.values().contains(QStringLiteral("Журнал")));
    }
};

QTEST_MAIN(TestTranslation)
#include "tst_translation.moc"
