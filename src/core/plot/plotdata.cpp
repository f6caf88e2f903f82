#include "plotdata.h"

#include <algorithm>

#include <QMap>

#include <cmath>

namespace {
constexpr QChar kEscape = QChar(0x1b);

bool isWordChar(QChar c)
{
    return c.isLetterOrNumber() || c == QLatin1Char('_');
}

bool isDigit(const QString& s, int i)
{
    return i < s.size() && s.at(i).isDigit() && s.at(i).unicode() < 128;
}

// Where a number starting at i ends, or i when none starts there. A number
// glued to a word ("temp2", "v1.2") belongs to the word.
int numberEnd(const QString& s, int i)
{
    if (i > 0 && (isWordChar(s.at(i - 1)) || s.at(i - 1) == QLatin1Char('.')))
        return i;
    int j = i;
    if (j < s.size() && (s.at(j) == QLatin1Char('-') || s.at(j) == QLatin1Char('+')))
        ++j;
    const int digitsFrom = j;
    while (isDigit(s, j))
        ++j;
    int digits = j - digitsFrom;
    if (j < s.size() && s.at(j) == QLatin1Char('.')) {
        const int fraction = j + 1;
        int k = fraction;
        while (isDigit(s, k))
            ++k;
        if (k > fraction || digits > 0) {
            digits += k - fraction;
            j = k;
        }
    }
    if (digits == 0)
        return i;
    if (j < s.size() && (s.at(j) == QLatin1Char('e') || s.at(j) == QLatin1Char('E'))) {
        int k = j + 1;
        if (k < s.size() && (s.at(k) == QLatin1Char('-') || s.at(k) == QLatin1Char('+')))
            ++k;
        if (isDigit(s, k)) {
            while (isDigit(s, k))
                ++k;
            j = k;
        }
    }
    return j;
}

// ANSI colour sequences are neither names nor numbers.
QString withoutEscapes(const QString& line)
{
    if (!line.contains(kEscape))
        return line;
    QString out;
    out.reserve(line.size());
    for (int i = 0; i < line.size(); ++i) {
        if (line.at(i) == kEscape && i + 1 < line.size() && line.at(i + 1) == QLatin1Char('[')) {
            i += 2;
            while (i < line.size() && !line.at(i).isLetter())
                ++i;
            continue;
        }
        out += line.at(i);
    }
    return out;
}

QString seriesName(const QString& text)
{
    static const QString separators = QStringLiteral(":=,;|()[]{}<>#*'\"");
    int from = 0;
    int to = text.size();
    while (from < to && (text.at(from).isSpace() || separators.contains(text.at(from))))
        ++from;
    while (to > from && (text.at(to - 1).isSpace() || separators.contains(text.at(to - 1))))
        --to;
    return text.mid(from, to - from);
}

QByteArray csvField(const QString& text)
{
    QByteArray utf8 = text.toUtf8();
    if (!utf8.contains(',') && !utf8.contains('"') && !utf8.contains('\n'))
        return utf8;
    return '"' + utf8.replace('"', "\"\"") + '"';
}
} // namespace

QList<QPair<QString, double>> PlotData::parseLine(const QString& raw)
{
    const QString line = withoutEscapes(raw);
    QList<QPair<QString, double>> found;
    // What someone typed at the REPL, echoed, is not the board's output.
    if (line.startsWith(QLatin1String(">>>")) || line.startsWith(QLatin1String("...")))
        return found;
    int nameFrom = 0;
    for (int i = 0; i < line.size();) {
        const int end = numberEnd(line, i);
        if (end == i) {
            ++i;
            continue;
        }
        bool ok = false;
        const double value = line.midRef(i, end - i).toDouble(&ok);
        if (ok && std::isfinite(value)) {
            QString name = seriesName(line.mid(nameFrom, i - nameFrom));
            if (name.isEmpty())
                name = QString::number(found.size() + 1);
            found.append({name, value});
        }
        // A unit glued to the number ("21.5C", "40%") is not the next name.
        i = end;
        while (i < line.size() && !line.at(i).isSpace() && line.at(i) != QLatin1Char(',') &&
               line.at(i) != QLatin1Char(';'))
            ++i;
        nameFrom = i;
    }
    return found;
}

bool PlotData::addLine(const QString& line, double seconds)
{
    const QList<QPair<QString, double>> values = parseLine(line);
    if (values.isEmpty())
        return false;
    if (m_samples == 0)
        m_start = seconds;
    bool dropped = false;
    for (const auto& value : values) {
        int at = 0;
        while (at < m_series.size() && m_series.at(at).name != value.first)
            ++at;
        if (at == m_series.size()) {
            if (m_series.size() >= kMaxSeries) {
                dropped = true;
                continue;
            }
            m_series.append(Series());
            m_series.last().name = value.first;
        }
        Series& s = m_series[at];
        s.points.append({seconds - m_start, m_samples, value.second});
        trim(s);
    }
    m_droppedSeries += dropped ? 1 : 0;
    ++m_samples;
    return true;
}

void PlotData::trim(Series& s) const
{
    if (s.count() <= m_limit)
        return;
    s.first = s.points.size() - m_limit;
    if (s.first >= m_limit) {
        s.points.remove(0, s.first);
        s.first = 0;
    }
}

void PlotData::clear()
{
    m_series.clear();
    m_samples = 0;
    m_droppedSeries = 0;
}

void PlotData::setLimit(int points)
{
    m_limit = qMax(2, points);
    for (Series& s : m_series)
        trim(s);
}

QByteArray PlotData::toCsv() const
{
    QByteArray csv = "sample,seconds";
    for (const Series& s : m_series)
        csv += ',' + csvField(s.name);
    csv += '\n';
    // One row per line; a series without a number in that line leaves its cell empty.
    QMap<qint64, QPair<double, QVector<const Point*>>> rows;
    for (int column = 0; column < m_series.size(); ++column) {
        const Series& s = m_series.at(column);
        for (int i = 0; i < s.count(); ++i) {
            auto& row = rows[s.at(i).sample];
            row.first = s.at(i).seconds;
            row.second.resize(m_series.size());
            row.second[column] = &s.at(i);
        }
    }
    for (auto it = rows.cbegin(); it != rows.cend(); ++it) {
        csv += QByteArray::number(it.key()) + ',' + QByteArray::number(it.value().first, 'f', 3);
        for (const Point* p : it.value().second)
            csv += ',' + (p ? QByteArray::number(p->value, 'g', 15) : QByteArray());
        csv += '\n';
    }
    return csv;
}

QVector<int> PlotData::gapStarts(const Series& series)
{
    QVector<int> starts;
    if (series.count() < 3)
        return starts;
    QVector<double> steps(series.count() - 1);
    for (int i = 1; i < series.count(); ++i)
        steps[i - 1] = series.at(i).seconds - series.at(i - 1).seconds;
    QVector<double> sorted = steps;
    std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
    const double limit = qMax(kMinGapSeconds, kGapPeriods * sorted.at(sorted.size() / 2));
    for (int i = 0; i < steps.size(); ++i)
        if (steps.at(i) > limit)
            starts << i + 1;
    return starts;
}
