#include "testsupport.h"
#include "virtualboard.h"

#include <QProcess>
#include <QSet>
#include <QXmlStreamReader>
#include <QtTest>

// The Russian translation covers every source text and has no unfinished entry.
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

};

QTEST_MAIN(TestTranslation)
#include "tst_translation.moc"
