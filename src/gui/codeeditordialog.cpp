#include "codeeditordialog.h"

#include "codeeditor/qcodeeditor.h"
#include "codeeditor/qpythoncompleter.h"
#include "codeeditor/qsyntaxhighlighters.h"
#include "codeeditor/qsyntaxstyle.h"
#include "qmaterialicon.h"
#include "themedetector.h"
#include "widgetprompter.h"

#include <QCloseEvent>
#include <QFile>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPushButton>
#include <QSettings>
#include <QTextDocument>
#include <QVBoxLayout>

static void initEditorResources()
{
    // The styles and language files live in this static library.
    Q_INIT_RESOURCE(editor);
}

CodeEditor::CodeEditor(QWidget* parent, Qt::WindowFlags flags) : QDialog(parent, flags)
{
    initEditorResources();
    setObjectName(QStringLiteral("CodeEditor"));
    setWindowTitle(tr("Dialog"));
    resize(800, 600);
    auto* layout = new QVBoxLayout(this);
    m_editor = new QCodeEditor(this);
    m_editor->setObjectName(QStringLiteral("editor"));
    layout->addWidget(m_editor);
    auto* buttons = new QHBoxLayout();
    m_saveButton = new QPushButton(materialIcon(QStringLiteral("save")), tr("Save As"), this);
    m_saveButton->setObjectName(QStringLiteral("saveButton"));
    m_closeButton = new QPushButton(materialIcon(QStringLiteral("cancel")), tr("Close without Saving"), this);
    m_closeButton->setObjectName(QStringLiteral("closeButton"));
    m_applyButton = new QPushButton(materialIcon(QStringLiteral("done_outline")), tr("Save && Upload"), this);
    m_applyButton->setObjectName(QStringLiteral("applyButton"));
    m_applyButton->setDefault(true);
    buttons->addWidget(m_saveButton);
    buttons->addStretch();
    buttons->addWidget(m_closeButton);
    buttons->addWidget(m_applyButton);
    layout->addLayout(buttons);
    m_editor->setSyntaxStyle(ThemeDetector::isDarkThemeEnabled() ? QSyntaxStyle::defaultDarkStyle()
                                                                 : QSyntaxStyle::defaultStyle());
    connect(m_applyButton, &QPushButton::clicked, this, &CodeEditor::applyFilter);
    connect(m_closeButton, &QPushButton::clicked, this, &QDialog::reject);
    QMetaObject::connectSlotsByName(this);
}

CodeEditor::~CodeEditor() = default;

Prompter& CodeEditor::prompter()
{
    if (!m_prompter) {
        m_ownPrompter = std::make_unique<WidgetPrompter>(parentWidget() ? parentWidget() : this);
        m_prompter = m_ownPrompter.get();
    }
    return *m_prompter;
}

void CodeEditor::readSettings(const QString& group)
{
    const QSettings settings;
    const auto value = [&](const char* key, const QVariant& fallback) {
        return settings.value(group + QLatin1Char('/') + QLatin1String(key), fallback);
    };
    // These defaults differ from the Preferences' on purpose (indentation on,
    // bracket completion off until the Preferences are saved once).
    m_editor->setAutoParentheses(value("Parenth", false).toBool());
    m_editor->setTabReplace(value("Tabs", true).toBool());
    m_editor->setTabReplaceSize(value("TabSize", 4).toInt());
    m_editor->setAutoIndentation(value("Indent", true).toBool());
    m_editor->setWordWrapMode(value("Wrap", false).toBool() ? QTextOption::WordWrap : QTextOption::NoWrap);
    m_editor->setLineWrapMode(value("Wrap", false).toBool() ? QTextEdit::WidgetWidth : QTextEdit::NoWrap);
    m_editor->setVisualizeWhitespace(value("ShowSpaces", false).toBool());
}

bool CodeEditor::load(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        emit error(tr("Cannot read %1: %2").arg(file.fileName(), file.errorString()));
        return false;
    }
    return load(QFileInfo(path).fileName(), file.readAll());
}

bool CodeEditor::load(const QString& name, const QByteArray& data)
{
    setWindowTitle(name);
    m_editor->setHighlighter(nullptr);
    m_editor->setCompleter(nullptr);
    // Deleted later, so forget them now: the next file must not take them up again.
    if (m_completer)
        m_completer->deleteLater();
    if (m_highlighter)
        m_highlighter->deleteLater();
    m_completer = nullptr;
    m_highlighter = nullptr;
    m_name = name;
    if (EditRules::isBinary(data)) {
        m_editor->setPlainText(EditRules::formatBinary(data));
        m_saveButton->setEnabled(false);
        m_applyButton->setEnabled(false);
        prompter().warning(tr("Code Editor"), tr("Looks like this is a binary file. Switching to read-only mode."));
        return true;
    }
    m_saveButton->setEnabled(true);
    m_applyButton->setEnabled(true);
    // Lay the document out once, after the text and its colours are in.
    QTextDocument* document = m_editor->document();
    const QSizeF page = document->pageSize();
    document->setPageSize(QSizeF(0, 0));
    m_editor->setPlainText(QString::fromUtf8(data));
    const EditRules::Type detected = EditRules::detectType(name, m_editor->toPlainText(), data);
    if (detected != EditRules::Other)
        m_type = detected;
    QStyleSyntaxHighlighter* highlighter = nullptr;
    switch (detected) {
    case EditRules::Python:
        highlighter = new QPythonHighlighter();
        m_completer = new QPythonCompleter(this);
        break;
    case EditRules::CXX_Source:
    case EditRules::CXX_Header:
        highlighter = new QCXXHighlighter();
        break;
    case EditRules::XML:
    case EditRules::HTML:
        highlighter = new QXMLHighlighter();
        break;
    case EditRules::JSON:
        highlighter = new QJSONHighlighter();
        break;
    case EditRules::Other:
        break;
    }
    if (highlighter) {
        highlighter->setParent(this);
        m_highlighter = highlighter;
    }
    m_editor->setCompleter(m_completer);
    m_editor->setHighlighter(m_highlighter);
    if (m_type == EditRules::JSON)
        m_editor->setPlainText(EditRules::shown(m_type, m_editor->toPlainText()));
    document->setPageSize(page);
    document->setModified(false);
    return true;
}

QByteArray CodeEditor::text() const
{
    return EditRules::stored(m_type, m_editor->toPlainText());
}

bool CodeEditor::saveAs(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        emit error(tr("Cannot write to %1: %2").arg(file.fileName(), file.errorString()));
        return false;
    }
    const QByteArray data = text();
    return file.write(data) == data.size();
}

void CodeEditor::on_saveButton_clicked()
{
    const QString path = prompter().saveFileName(tr("Save As"), directory + QLatin1Char('/') + m_name, QString());
    if (path.isEmpty())
        return;
    if (!saveAs(path))
        prompter().warning(tr("Save As"), tr("File %1 cannot be written").arg(path));
}

bool CodeEditor::discardAllowed()
{
    return !m_editor->document()->isModified() ||
           prompter().question(tr("Code Editor"), tr("Discard the changes?"), Prompter::YesNo) == Prompter::Yes;
}

void CodeEditor::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier && !discardAllowed())
        return;
    QDialog::keyPressEvent(event);
}

void CodeEditor::closeEvent(QCloseEvent* event)
{
    if (!discardAllowed()) {
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}

void CodeEditor::applyFilter()
{
    if (m_type == EditRules::JSON) {
        const QString problem = EditRules::jsonError(m_editor->toPlainText());
        if (!problem.isEmpty() &&
            prompter().question(tr("Code Editor"),
                                tr("The edited data is not a valid JSON document. Proceed?<br>Error: %1").arg(problem),
                                Prompter::YesNo) != Prompter::Yes)
            return;
    }
    accept();
}
