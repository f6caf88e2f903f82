#include "panedragdrop.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QDrag>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QMimeData>
#include <QMouseEvent>
#include <QUrl>

const QString PaneDragDrop::kBoardMime = QStringLiteral("application/x-pelkam-board-row");

PaneDragDrop::PaneDragDrop(QAbstractItemView* pcView, QAbstractItemView* boardView, QObject* parent)
    : QObject(parent), m_pc(pcView), m_board(boardView), m_pcViewport(pcView->viewport()),
      m_boardViewport(boardView->viewport())
{
    m_pc->setDragEnabled(true);
    m_pc->setDragDropMode(QAbstractItemView::DragDrop);
    m_pc->viewport()->setAcceptDrops(true);
    m_board->viewport()->setAcceptDrops(true);
    m_pc->viewport()->installEventFilter(this);
    m_board->viewport()->installEventFilter(this);
}

bool PaneDragDrop::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != m_boardViewport && watched != m_pcViewport)
        return false;
    const bool onBoard = watched == m_boardViewport;
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        if (onBoard) {
            const auto* mouse = static_cast<QMouseEvent*>(event);
            m_pressAt = mouse->pos();
            m_pressed = mouse->button() == Qt::LeftButton ? m_board->indexAt(mouse->pos()) : QModelIndex();
        }
        return false;
    case QEvent::MouseMove: {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (!onBoard || !m_pressed.isValid() || !(mouse->buttons() & Qt::LeftButton) ||
            (mouse->pos() - m_pressAt).manhattanLength() < QApplication::startDragDistance())
            return false;
        auto* mime = new QMimeData;
        mime->setData(kBoardMime, QByteArray::number(m_pressed.row()));
        m_pressed = QModelIndex();
        auto* drag = new QDrag(m_board);
        drag->setMimeData(mime);
        drag->exec(Qt::CopyAction);
        return true;
    }
    case QEvent::DragEnter:
    case QEvent::DragMove: {
        auto* drag = static_cast<QDropEvent*>(event);
        // Board rows onto the PC pane, PC files onto the board pane.
        const bool fits = onBoard ? drag->mimeData()->hasUrls() : drag->mimeData()->hasFormat(kBoardMime);
        if (!fits)
            return false;
        drag->setDropAction(Qt::CopyAction);
        drag->accept();
        return true;
    }
    case QEvent::Drop: {
        auto* drop = static_cast<QDropEvent*>(event);
        if (onBoard && drop->mimeData()->hasUrls()) {
            QStringList paths;
            for (const QUrl& url : drop->mimeData()->urls())
                if (url.isLocalFile() && QFileInfo(url.toLocalFile()).isFile())
                    paths << url.toLocalFile();
            drop->acceptProposedAction();
            emit pcFilesDropped(paths);
            return true;
        }
        if (!onBoard && drop->mimeData()->hasFormat(kBoardMime)) {
            drop->acceptProposedAction();
            emit boardEntryDropped(drop->mimeData()->data(kBoardMime).toInt());
            return true;
        }
        return false;
    }
    default:
        return false;
    }
}
