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
    }

    void registry()
    {
        QMaterialIcon* icons = QMaterialIcon::instance();
        QVERIFY(!icons->families().isEmpty());
        bool ok = false;
        QCOMPARE(icons->codepoint(QStringLiteral("3d_rotation"), &ok), 0xe84du);
        QVERIFY(ok);
        QCOMPARE(icons->codepoint(QStringLiteral("no_such_icon"), &ok), 0u);
        QVERIFY(!ok);
        QVERIFY(!icons->icon(QStringLiteral("save")).isNull());
        QVERIFY(!icons->icon(QStringLiteral("no_such_icon")).isNull());
    }

    void engine()
    {
        QCOMPARE(QFontIconEngine::pixelSizeFor(QRect(0, 0, 24, 24)), 19);
        QCOMPARE(QFontIconEngine::pixelSizeFor(QRect(0, 0, 16, 16)), 13);
        QFontIconEngine engine;
        engine.setFontFamily(QStringLiteral("Material Icons"));
        engine.setLetter(QChar(0xe161));
        const QPalette palette = QApplication::palette("QWidget");
        // Without a base colour, icons follow the palette.
        QCOMPARE(engine.colorFor(QIcon::Normal, QIcon::Off), palette.color(QPalette::Active, QPalette::ButtonText));
        engine.setBaseColor(Qt::white);
        engine.setCheckColor(QColor(QStringLiteral("#4CAF50")));
        QCOMPARE(engine.colorFor(QIcon::Normal, QIcon::Off), QColor(Qt::white));
        QCOMPARE(engine.colorFor(QIcon::Normal, QIcon::On), QColor(QStringLiteral("#4CAF50")));
        QCOMPARE(engine.colorFor(QIcon::Active, QIcon::On), QColor(QStringLiteral("#4CAF50")));
        QCOMPARE(engine.colorFor(QIcon::Disabled, QIcon::On), palette.color(QPalette::Disabled, QPalette::ButtonText));
        QCOMPARE(engine.colorFor(QIcon::Selected, QIcon::On), palette.color(QPalette::Active, QPalette::ButtonText));
        std::unique_ptr<QIconEngine> copy(engine.clone());
        auto* clone = static_cast<QFontIconEngine*>(copy.get());
        QCOMPARE(clone->fontFamily(), QStringLiteral("Material Icons"));
        QCOMPARE(clone->baseColor(), QColor(Qt::white));
        QCOMPARE(clone->letter(), QChar());
        QVERIFY(!clone->checkColor().isValid());
        const QPixmap pix = engine.pixmap(QSize(24, 24), QIcon::Normal, QIcon::Off);
        QCOMPARE(pix.size(), QSize(24, 24));
        // Something was drawn, in the base colour.
        const QImage image = pix.toImage();
        bool painted = false;
        for (int y = 0; y < 24 && !painted; ++y)
            for (int x = 0; x < 24 && !painted; ++x)
                painted = qAlpha(image.pixel(x, y)) > 200 && QColor(image.pixel(x, y)) == QColor(Qt::white);
        QVERIFY(painted);
    }
};

QTEST_MAIN(TestIcons)
#include "tst_icons.moc"
