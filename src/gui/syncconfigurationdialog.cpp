#include "syncconfigurationdialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>
#include <QVBoxLayout>

SyncConfigurationDialog::SyncConfigurationDialog(QWidget* parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("SyncConfigurationDialog"));
    resize(516, 230);
    setWindowTitle(tr("Synchronization"));
    auto* vertical = new QVBoxLayout(this);
    vertical->setObjectName(QStringLiteral("verticalLayout"));
    auto* form = new QFormLayout();
    form->setObjectName(QStringLiteral("formLayout"));
    const auto row = [this, form](const char* labelName, const QString& text, const char* editName) {
        auto* label = new QLabel(text, this);
        label->setObjectName(QString::fromLatin1(labelName));
        auto* edit = new QLineEdit(this);
        edit->setObjectName(QString::fromLatin1(editName));
        edit->setReadOnly(true);
        form->addRow(label, edit);
        return edit;
    };
    m_source = row("label", tr("Source:"), "srcEdit");
    m_destination = row("label_2", tr("Destination:"), "destEdit");
    vertical->addLayout(form);
    const auto check = [this, vertical](const QString& text, const char* name) {
        auto* box = new QCheckBox(text, this);
        box->setObjectName(QString::fromLatin1(name));
        vertical->addWidget(box);
        return box;
    };
    m_recursive = check(tr("Recursively"), "recursiveCheck");
    m_missing = check(tr("Upload missing files"), "missingCheck");
    m_createDirs = check(tr("Create missing folders"), "createDirsCheck");
    m_delete = check(tr("Delete files the PC lacks"), "deleteCheck");
    auto* previewRow = new QHBoxLayout();
    auto* preview = new QPushButton(tr("Preview"), this);
    preview->setObjectName(QStringLiteral("previewButton"));
    preview->setAutoDefault(false);
    previewRow->addWidget(preview);
    previewRow->addStretch();
    vertical->addLayout(previewRow);
    m_preview = new QPlainTextEdit(this);
    m_preview->setObjectName(QStringLiteral("previewView"));
    m_preview->setReadOnly(true);
    m_preview->hide();
    vertical->addWidget(m_preview);
    connect(preview, &QPushButton::clicked, this, &SyncConfigurationDialog::previewRequested);
    auto* info = new QLabel(tr("This will upload files from \"Source\" (PC) directory to the \"Destination\" (MC) "
                               "directory whose MD5 sums differ."),
                            this);
    info->setWordWrap(true);
    vertical->addWidget(info);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, Qt::Horizontal, this);
    buttons->setObjectName(QStringLiteral("buttonBox"));
    vertical->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_source, &QLineEdit::textChanged, this, &SyncConfigurationDialog::sourceChanged);
    connect(m_destination, &QLineEdit::textChanged, this, &SyncConfigurationDialog::destinationChanged);
}

void SyncConfigurationDialog::readSettings()
{
    const QSettings settings;
    m_recursive->setChecked(settings.value(QStringLiteral("Sync/Recursive"), true).toBool());
    m_missing->setChecked(settings.value(QStringLiteral("Sync/Missing"), true).toBool());
}

void SyncConfigurationDialog::writeSettings()
{
    QSettings settings;
    settings.setValue(QStringLiteral("Sync/Recursive"), m_recursive->isChecked());
    settings.setValue(QStringLiteral("Sync/Missing"), m_missing->isChecked());
}

QString SyncConfigurationDialog::source() const
{
    return m_source->text();
}

QString SyncConfigurationDialog::destination() const
{
    return m_destination->text();
}

bool SyncConfigurationDialog::recursive() const
{
    return m_recursive->isChecked();
}

bool SyncConfigurationDialog::missing() const
{
    return m_missing->isChecked();
}

void SyncConfigurationDialog::setSource(const QString& text)
{
    if (m_source->text() != text)
        m_source->setText(text);
}

void SyncConfigurationDialog::setDestination(const QString& text)
{
    if (m_destination->text() != text)
        m_destination->setText(text);
}

bool SyncConfigurationDialog::createDirs() const
{
    return m_createDirs->isChecked();
}

bool SyncConfigurationDialog::deleteExtra() const
{
    return m_delete->isChecked();
}

void SyncConfigurationDialog::showPreview(const QStringList& uploads, const QStringList& deletions, bool complete,
                                          const QString& problem)
{
    QStringList lines;
    for (const QString& f : uploads)
        lines << tr("upload %1").arg(f);
    for (const QString& f : deletions)
        lines << tr("delete %1").arg(f);
    if (lines.isEmpty())
        lines << tr("Nothing to do: the board folder is up to date");
    if (!problem.isEmpty())
        lines << problem;
    else if (!complete)
        lines << tr("The comparison did not finish: see the log");
    m_preview->setPlainText(lines.join(QLatin1Char('\n')));
    m_preview->show();
}
