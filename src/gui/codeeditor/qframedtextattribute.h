#pragma once

#include <QObject>
#include <QTextObjectInterface>

class QTextCursor;

// A text object that draws a frame around a range of text (found matches);
// registered with the editor's document layout.
class QFramedTextAttribute : public QObject, public QTextObjectInterface {
    Q_OBJECT
    Q_INTERFACES(QTextObjectInterface)
public:
    static int type();
    explicit QFramedTextAttribute(QObject* parent = nullptr);

    QSizeF intrinsicSize(QTextDocument* document, int position, const QTextFormat& format) override;
    void drawObject(QPainter* painter, const QRectF& rect, QTextDocument* document, int position,
                    const QTextFormat& format) override;

    void frame(QTextCursor cursor);
    // Removes the frames inside the cursor's selection.
    void clear(QTextCursor cursor);

private:
    enum Property { FramedString = 1 };
};
