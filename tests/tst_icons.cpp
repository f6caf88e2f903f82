#include "qmaterialicon.h"

#include <QApplication>
#include <QBuffer>
#include <QtTest>

class TestIcons : public QObject {
    Q_OBJECT
private slots:
    void codepointTable()
    {
        QBuffer table;
        table.setData("3d_rotation e84d\n\nbroken\nsave e161\n  spaced   e000  \nbad zz\nsave e162\na b c\n");
        table.open(QIODevice::ReadOnly);
        const QHash<QString, unsigned> parsed = QMaterialIcon::parseCodepoints(table);
        QCOMPARE(parsed.size(), 4);
        QCOMPARE(parsed.value(QStringLiteral("3d_rotation")), 0xe84du);
        QCOMPARE(parsed.value(QStringLiteral("save")), 0xe162u);
        QCOMPARE(parsed.value(QStringLiteral("spaced")), 0xe000u);
        QCOMPARE(parsed.value(QStringLiteral("bad"), 99u), 0u);
        // The shipped font and table are found.
        bool ok = false;
        QCOMPARE(QMaterialIcon::instance()->codepoint(QStringLiteral("3d_rotation"), &ok), 0xe84du);
        QVERIFY(ok);
    }

    void engine()
    {
        QFontIconEngine engine;
        engine.setFontFamily(QStringLiteral("Material Icons"));
        engine.setLetter(QChar(0xe161));
        engine.setBaseColor(Qt::white);
        engine.setCheckColor(QColor(QStringLiteral("#4CAF50")));
        QCOMPARE(engine.colorFor(QIcon::Normal, QIcon::On), QColor(QStringLiteral("#4CAF50")));
        const QPalette palette = QApplication::palette("QWidget");
        QCOMPARE(engine.colorFor(QIcon::Disabled, QIcon::On), palette.color(QPalette::Disabled, QPalette::ButtonText));
        // The glyph is drawn, in the base colour.
        const QImage image = engine.pixmap(QSize(24, 24), QIcon::Normal, QIcon::Off).toImage();
        bool painted = false;
        for (int y = 0; y < 24 && !painted; ++y)
            for (int x = 0; x < 24 && !painted; ++x)
                painted = qAlpha(image.pixel(x, y)) > 200 && QColor(image.pixel(x, y)) == QColor(Qt::white);
        QVERIFY(painted);
    }
};

QTEST_MAIN(TestIcons)
#include "tst_icons.moc"
