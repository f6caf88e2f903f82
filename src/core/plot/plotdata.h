#pragma once

#include <QList>
#include <QPair>
#include <QString>
#include <QVector>

// The numbers a board prints, kept as named series for the plotter. Every
// number in a line is one point; the text before it names its series
// ("temp: 21.5 hum: 40" gives "temp" and "hum"), a number with no text before
// it is named by its place in the line ("21.5,40" gives "1" and "2").
class PlotData {
public:
    static constexpr int kMaxSeries = 16;
    static constexpr int kDefaultLimit = 2000;

    struct Point {
        double seconds; // since the first point
        qint64 sample;  // the line's number, from 0
        double value;
    };
    struct Series {
        QString name;
        int count() const { return points.size() - first; }
        const Point& at(int i) const { return points.at(first + i); }

    private:
        friend class PlotData;
        // Old points are dropped in batches, so a full series costs no more per line than a short one.
        QVector<Point> points;
        int first = 0;
    };

    // The (name, value) pairs of one line; empty when it holds no number.
    static QList<QPair<QString, double>> parseLine(const QString& line);

    // Adds the numbers of one line printed at `seconds` (on the caller's
    // clock); false when the line held none.
    bool addLine(const QString& line, double seconds);
    void clear();
    // The last `points` points of every series are kept (at least 2).
    void setLimit(int points);
    int limit() const { return m_limit; }

    const QList<Series>& series() const { return m_series; }
    qint64 samples() const { return m_samples; }
    // Counts lines whose numbers were dropped because 16 series were full.
    int droppedSeries() const { return m_droppedSeries; }
    // All kept points: one row per line, "sample,seconds" then one column per series.
    QByteArray toCsv() const;
    // Where a series starts again after a pause (two runs of a program): the
    // indices of points that follow a gap of more than kGapPeriods of its usual
    // period and more than kMinGapSeconds. A line is not drawn across them.
    static QVector<int> gapStarts(const Series& series);
    static constexpr int kGapPeriods = 5;
    static constexpr double kMinGapSeconds = 0.5;

private:
    void trim(Series& s) const;

    QList<Series> m_series;
    int m_limit = kDefaultLimit;
    qint64 m_samples = 0;
    double m_start = 0;
    int m_droppedSeries = 0;
};
