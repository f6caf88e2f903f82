#pragma once

#include <QAbstractTableModel>
#include <QJsonArray>
#include <QStringList>

#include <functional>

// One listed board directory: directories first, then files, in board order.
class MCDirModel : public QAbstractTableModel {
    Q_OBJECT
public:
    // Supplies the decoration (an icon) of a row; the GUI sets it.
    using DecorationProvider = std::function<QVariant(bool isDir)>;

    explicit MCDirModel(QObject* parent = nullptr);

    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    bool isDir(const QModelIndex& index) const;
    QString path(const QModelIndex& index) const;
    QString fullPath(const QModelIndex& index) const;
    bool exists(const QString& name, bool isDir) const;
    bool dirExists(const QString& name) const { return exists(name, true); }
    bool fileExists(const QString& name) const { return exists(name, false); }

    void clear();
    void append(const QStringList& names, bool isDir);
    void appendExt(const QJsonArray& entries, bool isDir, const QString& nameKey, const QString& sizeKey);

    // The listing's directory, kept with a trailing "/".
    QString dirPath() const { return m_path; }
    void setDirPath(const QString& path);

    void setDecorationProvider(DecorationProvider provider) { m_decoration = std::move(provider); }

    static QString humanReadableSize(int size);

signals:
    void dirPathChanged(const QString& path);

private:
    struct Item {
        QString name;
        bool isDir = false;
        int size = -1;
    };
    void appendItems(const QList<Item>& items);

    QList<Item> m_items;
    QString m_path;
    DecorationProvider m_decoration;
};
