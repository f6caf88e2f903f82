#include "boardsettings.h"

#include <QSettings>

BoardOptions boardOptionsFromSettings(const QSettings& settings)
{
    BoardOptions options;
    options.fastTransfers = settings.value(QStringLiteral("MC/FastTransfers"), false).toBool();
    options.transferSize = settings.value(QStringLiteral("MC/TransferSize"), 0).toInt();
    options.suggestExecute = settings.value(QStringLiteral("MC/SuggestExecute"), false).toBool();
    options.subDirsSel = settings.value(QStringLiteral("MC/SubDirsSel"), 2).toInt();
    options.clickAction = settings.value(QStringLiteral("MC/ClickAction")).toString();
    for (const QString& key : settings.allKeys())
        if (key.startsWith(QLatin1String("Scripts/")) || key.startsWith(QLatin1String("PY/")) ||
            key == QLatin1String("MC/ESPDir") || key == QLatin1String("MC/STMDir"))
            options.texts.insert(key, settings.value(key).toString());
    return options;
}
