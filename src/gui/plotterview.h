#pragma once

#include "plot/plotdata.h"

#include <QElapsedTimer>
#include <QHash>
#include <QTimer>
#include <QWidget>

class Prompter;
class QAction;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QSpinBox;
class QwtLegend;
class QwtPlot;
class QwtPlotCurve;

// The Plotter tab: the numbers the board prints, as a graph. Lines come in at
// any rate; the graph is redrawn a few times a second at most, so a board
// printing at the full line rate never makes the window lag.
class PlotterView : public QWidget {
    Q_OBJECT
public:
    enum XAxis { Seconds, Samples };

    explicit PlotterView(QWidget* parent = nullptr);
    ~PlotterView() override;

    void setPrompter(Prompter* prompter) { m_prompter = prompter; }
    const PlotData& data() const { return m_data; }
    // What the graph shows now (it stands still while paused).
    int shownPoints(const QString& series) const;
    // How many separate lines the series is drawn as (runs apart in time).
    int shownRuns(const QString& series) const;
    bool isPaused() const;
    void setPaused(bool on);
    void setXAxis(XAxis axis);
    // The Y range: automatic, or fixed from min to max.
    void setYRange(bool automatic, double min = 0, double max = 0);
    bool isSeriesVisible(const QString& name) const;
    void setSeriesVisible(const QString& name, bool on);
    bool exportCsv(const QString& path);
    bool exportPng(const QString& path);

public slots:
    // One line of the board's output; a line without numbers is skipped.
    void addLine(const QString& line);
    void clear();
    // Redraws now what has come in (the timer does it otherwise).
    void refresh();

signals:
    void logLine(const QString& text);

private:
    QWidget* createControls();
    QwtPlotCurve* curveFor(int index);
    void applyLimit(int points);
    void askAndExport(const QString& title, const QString& suffix, const QString& filter,
                      bool (PlotterView::*write)(const QString&));

    PlotData m_data;
    QElapsedTimer m_clock;
    QTimer m_redraw;
    bool m_dirty = false;
    XAxis m_axis = Seconds;
    QwtPlot* m_plot = nullptr;
    QwtLegend* m_legend = nullptr;
    QList<QwtPlotCurve*> m_curves;
    QHash<QString, bool> m_hidden;
    QAction* m_pause = nullptr;
    QComboBox* m_axisBox = nullptr;
    QCheckBox* m_autoY = nullptr;
    QDoubleSpinBox* m_yMin = nullptr;
    QDoubleSpinBox* m_yMax = nullptr;
    QSpinBox* m_points = nullptr;
    Prompter* m_prompter = nullptr;
    bool m_warnedSeries = false;
};
