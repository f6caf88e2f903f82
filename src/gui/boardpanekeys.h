#pragma once

#include <QObject>

// Keys of the board pane: Enter opens the current entry (as a double click
// does), Delete removes it, Backspace goes up a folder. The window decides
// what each means; this only recognises them.
class BoardPaneKeys : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

signals:
    void openRequested();
    void removeRequested();
    void upRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};
