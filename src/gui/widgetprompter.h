#pragma once

#include "prompter.h"

class QWidget;

// Answers the program's questions with standard dialogs.
class WidgetPrompter : public Prompter {
public:
    explicit WidgetPrompter(QWidget* parent) : m_parent(parent) {}
    Answer question(const QString& title, const QString& text, Buttons buttons) override;
    QString saveFileName(const QString& title, const QString& suggested, const QString& filter) override;
    QString existingDirectory(const QString& title, const QString& start) override;

private:
    QWidget* m_parent;
};
