#pragma once

#include "UI/Controls/WaveformModel.h"

#include <QBasicTimer>
#include <QColor>
#include <QQuickPaintedItem>

namespace quillo {

/// Draws a `WaveformModel` and advances it while `running`: one timer and one small repaint per frame, and no work
/// otherwise.
class WaveformItem : public QQuickPaintedItem {
    Q_OBJECT
    Q_PROPERTY(QString mode READ mode WRITE setMode NOTIFY changed)
    Q_PROPERTY(bool running READ isRunning WRITE setRunning NOTIFY changed)
    Q_PROPERTY(float level READ level WRITE setLevel NOTIFY changed)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY changed)

public:
    static constexpr std::chrono::milliseconds frameInterval{33};

    explicit WaveformItem(QQuickItem* parent = nullptr);

    /// "calm", "live" or "travelling".
    [[nodiscard]] QString mode() const { return m_modeName; }
    void setMode(const QString& mode);
    [[nodiscard]] bool isRunning() const { return m_running; }
    void setRunning(bool running);
    [[nodiscard]] float level() const { return m_level; }
    void setLevel(float level) { m_level = level; }
    [[nodiscard]] QColor color() const { return m_color; }
    void setColor(const QColor& color);

    void paint(QPainter* painter) override;

Q_SIGNALS:
    void changed();

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    WaveformModel m_model;
    WaveformModel::Mode m_mode = WaveformModel::Mode::calm;
    QString m_modeName = QStringLiteral("calm");
    bool m_running = false;
    float m_level = 0;
    QColor m_color = Qt::white;
    QBasicTimer m_frames;
};

} // namespace quillo
