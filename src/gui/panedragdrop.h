#pragma once

#include <QModelIndex>
#include <QObject>
#include <QPoint>
#include <QStringList>

class QAbstractItemView;

// Drags between the two panes: PC files dropped on the board pane, a board
// file dropped on the PC pane. The board pane's drag is started here, so the
// board model keeps its flags. What a drop does is the window's.
class PaneDragDrop : public QObject {
    Q_OBJECT
public:
    PaneDragDrop(QAbstractItemView* pcView, QAbstractItemView* boardView, QObject* parent = nullptr);

    static const QString kBoardMime;

signals:
    void pcFilesDropped(const QStringList& paths);
    void boardEntryDropped(int row);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QAbstractItemView* m_pc;
    QAbstractItemView* m_board;
    // Kept from the start: while a view is destroyed its viewport still gets
    // events, and asking the half-gone view for it would be undefined.
    QObject* m_pcViewport;
    QObject* m_boardViewport;
    QPoint m_pressAt;
    QModelIndex m_pressed;
};
