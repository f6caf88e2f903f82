#include "plotterview.h"

#include "prompter.h"
#include "qmaterialicon.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QPainter>
#include <QSaveFile>
#include <QSettings>
#include <QSpinBox>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <qwt_legend.h>
#include <qwt_legend_label.h>
#include <qwt_plot.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_plot_renderer.h>

namespace {
// The graph is redrawn at most this often; lines in between only add points.
constexpr int kRedrawMs = 100;
constexpr int kMinPoints = 10;
constexpr int kMaxPoints = 1000000;
const QString kPointsKey = QStringLiteral("UI/PlotPoints");
// The exported picture: its margin and least size, in pixels.
constexpr int kPngMargin = 12;
constexpr int kPngMinWidth = 800;
constexpr int kPngMinHeight = 400;

// A curve drawn as separate lines, one per run, where its series paused.
class GappedCurve : public QwtPlotCurve {
public:
    using QwtPlotCurve::QwtPlotCurve;
    QVector<int> starts; // indices of points that begin a new run

protected:
    void drawSeries(QPainter* painter, const QwtScaleMap& xMap, const QwtScaleMap& yMap, const QRectF& canvas,
                    int from, int to) const override
    {
        if (to < 0)
            to = static_cast<int>(dataSize()) - 1;
        int begin = from;
        for (int start : starts) {
            if (start <= begin || start > to)
                continue;
            QwtPlotCurve::drawSeries(painter, xMap, yMap, canvas, begin, start - 1);
            begin = start;
        }
        QwtPlotCurve::drawSeries(painter, xMap, yMap, canvas, begin, to);
    }
};

QColor seriesColor(int index)
{
    // Sixteen hues far enough apart to tell the series apart on light and dark canvases.
    static const char* const kColors[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#d62728", "#9467bd", "#8c564b",
                                          "#e377c2", "#7f7f7f", "#bcbd22", "#17becf", "#393b79", "#637939",
                                          "#8c6d31", "#843c39", "#7b4173", "#3182bd"};
    return QColor(QLatin1String(kColors[index % 16]));
}
} // namespace

PlotterView::PlotterView(QWidget* parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("plotterView"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(createControls());

    m_plot = new QwtPlot(this);
    m_plot->setObjectName(QStringLiteral("plot"));
    m_plot->setAutoReplot(false);
    auto* grid = new QwtPlotGrid();
    grid->setMajorPen(QPen(palette().color(QPalette::Mid), 0, Qt::DotLine));
    grid->attach(m_plot);
    m_legend = new QwtLegend();
    m_legend->setDefaultItemMode(QwtLegendData::Checkable);
    m_plot->insertLegend(m_legend, QwtPlot::RightLegend);
    // A checked legend entry is a shown series.
    connect(m_legend, &QwtLegend::checked, this, [this](const QVariant& info, bool on, int) {
        if (auto* curve = dynamic_cast<QwtPlotCurve*>(m_plot->infoToItem(info)))
            setSeriesVisible(curve->title().text(), on);
    });
    layout->addWidget(m_plot, 1);
    setXAxis(Seconds);
    setYRange(true);

    applyLimit(QSettings().value(kPointsKey, PlotData::kDefaultLimit).toInt());
    m_redraw.setInterval(kRedrawMs);
    connect(&m_redraw, &QTimer::timeout, this, [this] {
        if (m_dirty && !isPaused())
            refresh();
    });
    m_redraw.start();
}

PlotterView::~PlotterView() = default;

QWidget* PlotterView::createControls()
{
    auto* bar = new QToolBar(this);
    bar->setObjectName(QStringLiteral("plotterToolBar"));
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_pause = bar->addAction(materialIcon(QStringLiteral("pause")), tr("Pause"));
    m_pause->setObjectName(QStringLiteral("actionPlotPause"));
    m_pause->setCheckable(true);
    m_pause->setToolTip(tr("Keep the graph still; the numbers keep coming in"));
    connect(m_pause, &QAction::toggled, this, &PlotterView::setPaused);
    QAction* clearAction = bar->addAction(materialIcon(QStringLiteral("clear_all")), tr("Clear"));
    clearAction->setObjectName(QStringLiteral("actionPlotClear"));
    connect(clearAction, &QAction::triggered, this, &PlotterView::clear);
    bar->addSeparator();

    m_axisBox = new QComboBox(bar);
    m_axisBox->setObjectName(QStringLiteral("plotAxisBox"));
    m_axisBox->addItem(tr("Seconds"), Seconds);
    m_axisBox->addItem(tr("Samples"), Samples);
    m_axisBox->setToolTip(tr("The X axis: seconds since the first point, or the number of each line"));
    connect(m_axisBox, QOverload<int>::of(&QComboBox::activated), this,
            [this](int index) { setXAxis(static_cast<XAxis>(m_axisBox->itemData(index).toInt())); });
    bar->addWidget(m_axisBox);

    m_autoY = new QCheckBox(tr("Automatic Y range"), bar);
    m_autoY->setObjectName(QStringLiteral("plotAutoY"));
    m_autoY->setChecked(true);
    m_yMin = new QDoubleSpinBox(bar);
    m_yMax = new QDoubleSpinBox(bar);
    for (QDoubleSpinBox* box : {m_yMin, m_yMax}) {
        box->setRange(-1e9, 1e9);
        box->setDecimals(2);
        box->setEnabled(false);
        box->setMaximumWidth(fontMetrics().horizontalAdvance(QStringLiteral("-000000.00")) + 30);
    }
    m_yMin->setObjectName(QStringLiteral("plotYMin"));
    m_yMax->setObjectName(QStringLiteral("plotYMax"));
    m_yMin->setToolTip(tr("Lowest value shown"));
    m_yMax->setToolTip(tr("Highest value shown"));
    m_yMax->setValue(100);
    const auto applyY = [this] { setYRange(m_autoY->isChecked(), m_yMin->value(), m_yMax->value()); };
    connect(m_autoY, &QCheckBox::toggled, this, applyY);
    connect(m_yMin, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this, applyY);
    connect(m_yMax, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this, applyY);
    bar->addWidget(m_autoY);
    bar->addWidget(m_yMin);
    bar->addWidget(m_yMax);
    bar->addSeparator();

    bar->addWidget(new QLabel(tr("Points kept:"), bar));
    m_points = new QSpinBox(bar);
    m_points->setObjectName(QStringLiteral("plotPoints"));
    m_points->setRange(kMinPoints, kMaxPoints);
    m_points->setSingleStep(1000);
    m_points->setToolTip(tr("How many of the last points of each series are kept and shown"));
    connect(m_points, QOverload<int>::of(&QSpinBox::valueChanged), this, [this](int points) {
        QSettings().setValue(kPointsKey, points);
        applyLimit(points);
    });
    bar->addWidget(m_points);
    bar->addSeparator();

    // The exports by icon (their names in the tooltip) so the row fits a normal window.
    const auto exportButton = [this, bar](const char* name, const QString& icon, const QString& text) {
        auto* a = new QAction(materialIcon(icon), text, this);
        a->setObjectName(QLatin1String(name));
        auto* button = new QToolButton(bar);
        button->setDefaultAction(a);
        button->setToolButtonStyle(Qt::ToolButtonIconOnly);
        bar->addWidget(button);
        return a;
    };
    connect(exportButton("actionPlotExportCsv", QStringLiteral("table_chart"), tr("Export CSV")), &QAction::triggered,
            this, [this] {
                askAndExport(tr("Export CSV"), QStringLiteral(".csv"), tr("CSV files (*.csv)"),
                             &PlotterView::exportCsv);
            });
    connect(exportButton("actionPlotExportPng", QStringLiteral("image"), tr("Export PNG")), &QAction::triggered, this,
            [this] {
                askAndExport(tr("Export PNG"), QStringLiteral(".png"), tr("PNG images (*.png)"),
                             &PlotterView::exportPng);
            });
    return bar;
}

void PlotterView::addLine(const QString& line)
{
    if (m_data.samples() == 0)
        m_clock.start();
    if (!m_data.addLine(line, m_clock.isValid() ? m_clock.nsecsElapsed() / 1e9 : 0))
        return;
    m_dirty = true;
    if (m_data.droppedSeries() > 0 && !m_warnedSeries) {
        m_warnedSeries = true;
        emit logLine(
            tr("The plotter shows %1 series at most: numbers of further series are skipped").arg(PlotData::kMaxSeries));
    }
}

void PlotterView::clear()
{
    m_data.clear();
    m_clock.invalidate();
    m_warnedSeries = false;
    for (QwtPlotCurve* curve : qAsConst(m_curves))
        delete curve;
    m_curves.clear();
    m_dirty = false;
    // With nothing to scale to, Qwt keeps the last range: start afresh.
    m_plot->setAxisScale(QwtPlot::xBottom, 0, 1);
    m_plot->setAxisAutoScale(QwtPlot::xBottom, true);
    if (m_autoY->isChecked()) {
        m_plot->setAxisScale(QwtPlot::yLeft, 0, 1);
        m_plot->setAxisAutoScale(QwtPlot::yLeft, true);
    }
    m_plot->replot();
}

QwtPlotCurve* PlotterView::curveFor(int index)
{
    while (m_curves.size() <= index) {
        const QString name = m_data.series().at(m_curves.size()).name;
        auto* curve = new GappedCurve(name);
        curve->setPen(seriesColor(m_curves.size()), 1.5);
        curve->setRenderHint(QwtPlotItem::RenderAntialiased, false);
        curve->attach(m_plot);
        curve->setVisible(!m_hidden.value(name));
        m_curves.append(curve);
        if (auto* label = qobject_cast<QwtLegendLabel*>(m_legend->legendWidget(m_plot->itemToInfo(curve))))
            label->setChecked(curve->isVisible());
    }
    return m_curves.at(index);
}

void PlotterView::refresh()
{
    m_dirty = false;
    const QList<PlotData::Series>& all = m_data.series();
    for (int i = 0; i < all.size(); ++i) {
        const PlotData::Series& s = all.at(i);
        QVector<QPointF> points(s.count());
        for (int p = 0; p < s.count(); ++p) {
            const PlotData::Point& point = s.at(p);
            points[p] = QPointF(m_axis == Seconds ? point.seconds : static_cast<double>(point.sample), point.value);
        }
        auto* curve = static_cast<GappedCurve*>(curveFor(i));
        // Runs apart in time are lines apart; counted in lines they follow on.
        curve->starts = m_axis == Seconds ? PlotData::gapStarts(s) : QVector<int>();
        curve->setSamples(points);
    }
    m_plot->replot();
}

int PlotterView::shownRuns(const QString& series) const
{
    for (const QwtPlotCurve* curve : m_curves)
        if (curve->title().text() == series)
            return static_cast<const GappedCurve*>(curve)->starts.size() + 1;
    return 0;
}

int PlotterView::shownPoints(const QString& series) const
{
    for (const QwtPlotCurve* curve : m_curves)
        if (curve->title().text() == series)
            return static_cast<int>(curve->dataSize());
    return 0;
}

bool PlotterView::isPaused() const
{
    return m_pause->isChecked();
}

void PlotterView::setPaused(bool on)
{
    m_pause->setChecked(on);
    m_pause->setIcon(materialIcon(on ? QStringLiteral("play_arrow") : QStringLiteral("pause")));
    m_pause->setText(on ? tr("Resume") : tr("Pause"));
    if (!on && m_dirty)
        refresh();
}

void PlotterView::setXAxis(XAxis axis)
{
    m_axis = axis;
    m_axisBox->setCurrentIndex(m_axisBox->findData(axis));
    m_plot->setAxisTitle(QwtPlot::xBottom, axis == Seconds ? tr("Seconds") : tr("Samples"));
    m_dirty = true;
    if (!isPaused())
        refresh();
}

void PlotterView::setYRange(bool automatic, double min, double max)
{
    const QSignalBlocker blockAuto(m_autoY);
    const QSignalBlocker blockMin(m_yMin);
    const QSignalBlocker blockMax(m_yMax);
    m_autoY->setChecked(automatic);
    m_yMin->setEnabled(!automatic);
    m_yMax->setEnabled(!automatic);
    if (automatic) {
        m_plot->setAxisAutoScale(QwtPlot::yLeft, true);
    } else {
        m_yMin->setValue(min);
        m_yMax->setValue(max);
        m_plot->setAxisScale(QwtPlot::yLeft, qMin(min, max), qMax(min, max));
    }
    m_plot->replot();
}

bool PlotterView::isSeriesVisible(const QString& name) const
{
    return !m_hidden.value(name);
}

void PlotterView::setSeriesVisible(const QString& name, bool on)
{
    m_hidden.insert(name, !on);
    for (QwtPlotCurve* curve : qAsConst(m_curves)) {
        if (curve->title().text() != name)
            continue;
        curve->setVisible(on);
        if (auto* label = qobject_cast<QwtLegendLabel*>(m_legend->legendWidget(m_plot->itemToInfo(curve))))
            label->setChecked(on);
    }
    m_plot->replot();
}

void PlotterView::applyLimit(int points)
{
    points = qBound(kMinPoints, points, kMaxPoints);
    m_data.setLimit(points);
    const QSignalBlocker blocker(m_points);
    m_points->setValue(points);
    m_dirty = true;
}

bool PlotterView::exportCsv(const QString& path)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(m_data.toCsv()) < 0 || !file.commit()) {
        emit logLine(tr("Cannot save to %1: %2").arg(path, file.errorString()));
        return false;
    }
    emit logLine(tr("Saved to %1").arg(QFileInfo(path).fileName()));
    return true;
}

bool PlotterView::exportPng(const QString& path)
{
    // A grab of the widget cuts the top tick label at its edge: render the
    // plot with a margin all round instead, at least at a readable size.
    const QSize size = m_plot->size().expandedTo(QSize(kPngMinWidth, kPngMinHeight));
    QImage image(size + QSize(2 * kPngMargin, 2 * kPngMargin), QImage::Format_ARGB32);
    image.fill(palette().color(QPalette::Window));
    QPainter painter(&image);
    QwtPlotRenderer().render(m_plot, &painter, QRectF(QPointF(kPngMargin, kPngMargin), QSizeF(size)));
    painter.end();
    if (!image.save(path, "PNG")) {
        emit logLine(tr("Cannot save to %1: %2").arg(path, tr("the image could not be written")));
        return false;
    }
    emit logLine(tr("Saved to %1").arg(QFileInfo(path).fileName()));
    return true;
}

void PlotterView::askAndExport(const QString& title, const QString& suffix, const QString& filter,
                               bool (PlotterView::*write)(const QString&))
{
    if (!m_prompter)
        return;
    QString path = m_prompter->saveFileName(title, QDir::home().filePath(QStringLiteral("plot") + suffix), filter);
    if (path.isEmpty())
        return;
    if (!path.endsWith(suffix, Qt::CaseInsensitive))
        path += suffix;
    (this->*write)(path);
}
