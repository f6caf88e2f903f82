#include "preferences.h"

#include "link/boardlink.h"
#include "widgetprompter.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QSettings>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

namespace {
constexpr int kTransferDefault = 31; // shown as "Default": any value below 32 means 512
constexpr int kTransferMax = 1024;
constexpr int kTerminalLinesMax = 10000000;
constexpr int kAlwaysAsk = 2;

template <typename Widget> Widget* named(Widget* widget, const char* name)
{
    widget->setObjectName(QString::fromLatin1(name));
    return widget;
}

// Offers "Default" and the chunk sizes the board script takes (32 to 1024,
// powers of two); a typed value is rounded down to one of them.
class ChunkSizeSpin : public QSpinBox {
public:
    using QSpinBox::QSpinBox;
    void stepBy(int steps) override
    {
        int v = value();
        for (; steps > 0; --steps)
            v = v < 32 ? 32 : qMin(v * 2, kTransferMax);
        for (; steps < 0; ++steps)
            v = v <= 32 ? kTransferDefault : v / 2;
        setValue(v);
    }

protected:
    int valueFromText(const QString& text) const override
    {
        const int typed = QSpinBox::valueFromText(text);
        return typed <= kTransferDefault ? kTransferDefault : BoardLink::safeTransferSize(typed);
    }
    void fixup(QString& input) const override { input = textFromValue(valueFromText(input)); }
};

// The groups' fields start in one column: every label as wide as the widest.
void alignLabels(const QList<QFormLayout*>& forms)
{
    QList<QWidget*> labels;
    int widest = 0;
    for (QFormLayout* form : forms)
        for (int row = 0; row < form->rowCount(); ++row)
            if (QLayoutItem* item = form->itemAt(row, QFormLayout::LabelRole); item && item->widget()) {
                labels << item->widget();
                widest = qMax(widest, item->widget()->sizeHint().width());
            }
    for (QWidget* label : qAsConst(labels))
        label->setMinimumWidth(widest);
}

QString displayName(const QLocale& locale)
{
    // Each language in itself, so a user who cannot read the current one finds theirs.
    return QStringLiteral("%1 (%2)").arg(locale.nativeLanguageName(), locale.nativeCountryName());
}
} // namespace

static void initTranslationResources()
{
    Q_INIT_RESOURCE(lang);
}

Preferences::Preferences(QWidget* parent) : QDialog(parent)
{
    initTranslationResources();
    setObjectName(QStringLiteral("Preferences"));
    setWindowTitle(tr("Preferences"));
    auto* layout = new QVBoxLayout(this);
    auto* tabs = named(new QTabWidget(this), "tabWidget");
    layout->addWidget(tabs);

    auto* global = named(new QWidget(), "globalTab");
    auto* globalLayout = new QVBoxLayout(global);
    auto* interface = named(new QGroupBox(tr("Interface"), global), "groupBox_3");
    auto* interfaceForm = new QFormLayout(interface);
    m_language = named(new QComboBox(interface), "global_langCombo");
    interfaceForm->addRow(tr("Language:"), m_language);
    m_darkText = named(new QLabel(tr("Colors:"), interface), "global_darkText");
    m_dark = named(new QComboBox(interface), "global_darkCombo");
    m_dark->addItems({tr("Light"), tr("Dark")});
    interfaceForm->addRow(m_darkText, m_dark);
    m_terminalLines = named(new QSpinBox(interface), "global_TerminalLinesSpin");
    m_terminalLines->setRange(0, kTerminalLinesMax);
    m_terminalLines->setSingleStep(1000);
    m_terminalLines->setSpecialValueText(tr("Unlimited"));
    interfaceForm->addRow(tr("Terminal lines kept:"), m_terminalLines);
    globalLayout->addWidget(interface);

    auto* files = named(new QGroupBox(tr("MC File List"), global), "groupBox");
    auto* filesForm = new QFormLayout(files);
    m_clickAction = named(new QComboBox(files), "global_MCClickCombo");
    m_clickAction->addItem(tr("Edit File"), QStringLiteral("edit"));
    m_clickAction->addItem(tr("Download File"), QStringLiteral("download"));
    filesForm->addRow(tr("Double click:"), m_clickAction);
    m_stmFolder = named(new QLineEdit(files), "global_STMFolderEdit");
    filesForm->addRow(tr("Default directory (STM):"), m_stmFolder);
    m_espFolder = named(new QLineEdit(files), "global_ESPFolderEdit");
    filesForm->addRow(tr("Default directory (ESP):"), m_espFolder);
    globalLayout->addWidget(files);

    auto* transfer = named(new QGroupBox(tr("Transfer"), global), "groupBox_2");
    auto* transferForm = new QFormLayout(transfer);
    m_transferSize = named(new ChunkSizeSpin(transfer), "global_TransferSizeSpin");
    m_transferSize->setRange(kTransferDefault, kTransferMax);
    m_transferSize->setValue(kTransferDefault);
    m_transferSize->setSpecialValueText(tr("Default"));
    transferForm->addRow(tr("Chunk Size:"), m_transferSize);
    // The misspelt name is the widget's established one.
    m_dirStructure = named(new QComboBox(transfer), "globat_DirStructCombo");
    m_dirStructure->addItems({tr("Keep directory structure"), tr("Upload to the root directory"), tr("Always ask")});
    transferForm->addRow(tr("Upload File:"), m_dirStructure);
    m_suggestExecute = named(new QCheckBox(tr("Ask to execute a script"), transfer), "global_MCExecCheck");
    transferForm->addRow(m_suggestExecute);
    m_fastTransfers = named(new QCheckBox(tr("Fast transfers"), transfer), "global_FastTransfersCheck");
    m_fastTransfers->setToolTip(fastTransfersTip());
    transferForm->addRow(m_fastTransfers);
    m_keepActions = named(new QCheckBox(tr("Keep the file actions on after a failed operation"), transfer),
                          "global_KeepActionsCheck");
    m_keepActions->setToolTip(tr("Off: after a failed transfer the file actions stay off until Abort brings the "
                                 "board back to its prompt"));
    transferForm->addRow(m_keepActions);
    m_keepWaiting = named(new QSpinBox(transfer), "global_KeepWaitingSpin");
    m_keepWaiting->setRange(0, kMaxWaitingMinutes);
    m_keepWaiting->setSpecialValueText(tr("Off"));
    m_keepWaiting->setSuffix(tr(" min"));
    m_keepWaiting->setToolTip(tr("After the ten reconnect attempts, go on looking for the same board (USB serial "
                                 "number, port or ws:// address) this long, and connect when it is back"));
    transferForm->addRow(tr("Keep waiting for the board:"), m_keepWaiting);
    m_darkWarning = named(new QLabel(tr("<html><head/><body><p><span style=\" font-weight:600; color:#ef2929;\">* "
                                        "Changing the color theme requires a restart</span></p></body></html>"),
                                     transfer),
                          "global_darkWarning");
    transferForm->addRow(m_darkWarning);
    globalLayout->addWidget(transfer);
    globalLayout->addStretch();
    alignLabels({interfaceForm, filesForm, transferForm});
    tabs->addTab(global, tr("Environment"));

    auto* editor = named(new QWidget(), "editorTab");
    auto* editorForm = new QFormLayout(editor);
    m_tabs = named(new QComboBox(editor), "editor_TabsCombo");
    m_tabs->addItems({tr("Spaces"), tr("Tabs")});
    editorForm->addRow(tr("Tab policy:"), m_tabs);
    m_tabSize = named(new QSpinBox(editor), "editor_TabSizeSpin");
    m_tabSize->setRange(2, 16);
    m_tabSize->setValue(4);
    editorForm->addRow(tr("Tab size:"), m_tabSize);
    m_autoIndent = named(new QCheckBox(tr("Automatic indentation"), editor), "editor_AutoIndentCheck");
    m_autoParentheses = named(new QCheckBox(tr("Automatic parentheses completion"), editor), "editor_AutoParentCheck");
    m_wordWrap = named(new QCheckBox(tr("Word wrap"), editor), "editor_WordWrapCheck");
    m_whitespace = named(new QCheckBox(tr("Visualize whitespace"), editor), "editor_WhiteSpaceCheck");
    for (QCheckBox* box : {m_autoIndent, m_autoParentheses, m_wordWrap, m_whitespace})
        editorForm->addRow(box);
    tabs->addTab(editor, tr("Editor"));

    auto* buttons = named(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this), "buttonBox");
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

Preferences::~Preferences() = default;

Prompter& Preferences::prompter()
{
    if (!m_prompter) {
        m_ownPrompter = std::make_unique<WidgetPrompter>(this);
        m_prompter = m_ownPrompter.get();
    }
    return *m_prompter;
}

void Preferences::fillLanguages()
{
    m_language->clear();
    m_language->addItem(tr("System"), QLocale::c());
    QList<QLocale> locales{QLocale(QStringLiteral("en_US"))};
    for (const QString& file :
         QDir(QStringLiteral(":/lang/")).entryList({QStringLiteral("*.qm")}, QDir::Files, QDir::Unsorted)) {
        QStringList parts = file.chopped(3).split(QLatin1Char('_'));
        parts.removeFirst();
        locales << QLocale(parts.join(QLatin1Char('_')));
    }
    std::sort(locales.begin(), locales.end(), [](const QLocale& a, const QLocale& b) { return a.name() < b.name(); });
    for (const QLocale& locale : qAsConst(locales))
        m_language->addItem(displayName(locale), locale);
}

void Preferences::readSettings()
{
    const QSettings settings;
    fillLanguages();
    // The theme follows the desktop here: these stay in the layout, unseen.
    m_darkText->hide();
    m_dark->hide();
    m_darkWarning->hide();

    const QString language = settings.value(QStringLiteral("UI/Language")).toString();
    const int languageIndex = language.isEmpty() ? 0 : m_language->findText(displayName(QLocale(language)));
    // A numeric code (stored at first start) matches no item: "System" shows.
    m_language->setCurrentIndex(qMax(0, languageIndex));

    m_terminalLines->setValue(settings.value(QStringLiteral("UI/TerminalLines"), 0).toInt());
    m_clickAction->setCurrentIndex(
        settings.value(QStringLiteral("MC/ClickAction")).toString() == QLatin1String("download") ? 1 : 0);
    const int chunk = settings.value(QStringLiteral("MC/TransferSize"), 0).toInt();
    m_transferSize->setValue(chunk <= kTransferDefault ? kTransferDefault : BoardLink::safeTransferSize(chunk));
    const int subDirs = settings.value(QStringLiteral("MC/SubDirsSel"), kAlwaysAsk).toInt();
    m_dirStructure->setCurrentIndex(subDirs >= 0 && subDirs < m_dirStructure->count() ? subDirs : kAlwaysAsk);
    m_suggestExecute->setChecked(settings.value(QStringLiteral("MC/SuggestExecute"), false).toBool());
    m_fastTransfers->setChecked(settings.value(QStringLiteral("MC/FastTransfers"), false).toBool());
    m_keepActions->setChecked(settings.value(kKeepActionsKey, false).toBool());
    m_keepWaiting->setValue(settings.value(kKeepWaitingKey, 0).toInt());
    m_stmFolder->setText(settings.value(QStringLiteral("MC/STMDir"), QStringLiteral("/flash")).toString());
    m_espFolder->setText(settings.value(QStringLiteral("MC/ESPDir"), QStringLiteral("/")).toString());

    m_autoIndent->setChecked(settings.value(QStringLiteral("Code/Indent"), false).toBool());
    m_autoParentheses->setChecked(settings.value(QStringLiteral("Code/Parenth"), true).toBool());
    m_tabs->setCurrentIndex(settings.value(QStringLiteral("Code/Tabs"), true).toBool() ? 0 : 1);
    m_tabSize->setValue(settings.value(QStringLiteral("Code/TabSize"), 4).toInt());
    m_wordWrap->setChecked(settings.value(QStringLiteral("Code/Wrap"), false).toBool());
    m_whitespace->setChecked(settings.value(QStringLiteral("Code/ShowSpaces"), false).toBool());
}

void Preferences::writeSettings()
{
    QSettings settings;
    const QString language = m_language->currentIndex() == 0 ? QString() : m_language->currentData().toLocale().name();
    const QString stored = settings.value(QStringLiteral("UI/Language")).toString();
    // Deliberately asymmetric: leaving "System" for a language needs no warning.
    if (!stored.isEmpty() && stored != language)
        prompter().warning(tr("Change Language"), tr("Language will be changed after an application restart."));
    settings.setValue(QStringLiteral("UI/Language"), language);
    settings.setValue(QStringLiteral("MC/ClickAction"),
                      m_clickAction->currentIndex() == 1 ? QStringLiteral("download") : QStringLiteral("edit"));
    settings.setValue(QStringLiteral("MC/TransferSize"), m_transferSize->value());
    settings.setValue(QStringLiteral("UI/TerminalLines"), m_terminalLines->value());
    settings.setValue(QStringLiteral("MC/SubDirsSel"), m_dirStructure->currentIndex());
    settings.setValue(QStringLiteral("MC/STMDir"), m_stmFolder->text());
    settings.setValue(QStringLiteral("MC/ESPDir"), m_espFolder->text());
    settings.setValue(QStringLiteral("MC/SuggestExecute"), m_suggestExecute->isChecked());
    settings.setValue(QStringLiteral("MC/FastTransfers"), m_fastTransfers->isChecked());
    settings.setValue(kKeepActionsKey, m_keepActions->isChecked());
    settings.setValue(kKeepWaitingKey, m_keepWaiting->value());
    settings.setValue(QStringLiteral("Code/Parenth"), m_autoParentheses->isChecked());
    settings.setValue(QStringLiteral("Code/Indent"), m_autoIndent->isChecked());
    settings.setValue(QStringLiteral("Code/Tabs"), m_tabs->currentIndex() == 0);
    settings.setValue(QStringLiteral("Code/TabSize"), m_tabSize->value());
    settings.setValue(QStringLiteral("Code/Wrap"), m_wordWrap->isChecked());
    settings.setValue(QStringLiteral("Code/ShowSpaces"), m_whitespace->isChecked());
}

QString Preferences::fastTransfersTip()
{
    return tr("Paste the board scripts once, skip the idle waits, send file bytes raw over a serial line and "
              "compressible files deflated, and write "
              "each upload beside its target until it checks out: a first copy of a project is many times "
              "faster. Leave it off for firmware whose REPL misbehaves without pauses.");
}
