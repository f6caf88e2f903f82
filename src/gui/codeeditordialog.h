#pragma once

#include "edit/editrules.h"

#include <QDialog>
#include <QPointer>

#include <memory>

class Prompter;
class QCodeEditor;
#include <QCompleter>
class QPushButton;
#include "codeeditor/qstylesyntaxhighlighter.h"

// The dialog in which one board (or new) file is edited: highlighter and
// completer chosen by name and content, binary data shown read-only as a hex
// dump, JSON indented for editing and compact for upload.
class QCloseEvent;
class QKeyEvent;

class CodeEditor : public QDialog {
    Q_OBJECT
public:
    using Type = EditRules::Type;

    explicit CodeEditor(QWidget* parent = nullptr, Qt::WindowFlags flags = Qt::WindowFlags());
    ~CodeEditor() override;

    // Questions go here; the dialog answers with message boxes by default.
    void setPrompter(Prompter* prompter) { m_prompter = prompter; }
    void readSettings(const QString& group);
    bool load(const QString& path);
    bool load(const QString& name, const QByteArray& data);
    QByteArray text() const;
    bool saveAs(const QString& path);
    Type type() const { return m_type; }
    QCodeEditor* editor() const { return m_editor; }

    static bool isBinary(const QByteArray& data) { return EditRules::isBinary(data); }
    static QString formatBinary(const QByteArray& data) { return EditRules::formatBinary(data); }

    // Where Save As starts.
    QString directory;

public slots:
    void on_saveButton_clicked();
    void applyFilter();

signals:
    void error(const QString& descr);

protected:
    // Escape and the window's close button ask before modified text is lost;
    // "Close without Saving" does not.
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    bool discardAllowed();
    Prompter& prompter();

    QCodeEditor* m_editor;
    QPushButton* m_saveButton;
    QPushButton* m_closeButton;
    QPushButton* m_applyButton;
    Type m_type = EditRules::Other;
    QPointer<QCompleter> m_completer;
    QPointer<QStyleSyntaxHighlighter> m_highlighter;
    QString m_name;
    Prompter* m_prompter = nullptr;
    std::unique_ptr<Prompter> m_ownPrompter;
};
