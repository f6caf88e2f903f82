#pragma once

#include <QWidget>

class QCodeEditor;
class QSyntaxStyle;

// The gutter of the code editor: one right-aligned number per line.
class QLineNumberArea : public QWidget {
    Q_OBJECT
public:
    explicit QLineNumberArea(QCodeEditor* editor);

    QSize sizeHint() const override;
    void setSyntaxStyle(QSyntaxStyle* style) { m_style = style; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QCodeEditor* m_editor;
    QSyntaxStyle* m_style = nullptr;
};
