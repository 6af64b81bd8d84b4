#include "examples/host/window/Viewport.h"

#include "qt/toolkit/QtText.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>
#include <algorithm>

namespace host
{
Viewport::Viewport(QWidget* parent) : QWidget(parent)
{
    setAccessibleName(XInLanguage(u"Picture of the scene", u"Image de la sc\u00e8ne"));
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(160, 120);
}

void Viewport::Show(const Meshes& meshes)
{
    m_meshes = meshes;
    update();
}

void Viewport::ShowAsWires(bool asWires)
{
    m_view.m_asWires = asWires;
    update();
}

void Viewport::paintEvent(QPaintEvent*)
{
    const QSize pixels = (QSizeF(size()) * devicePixelRatioF()).toSize();
    m_image.m_width = pixels.width();
    m_image.m_height = pixels.height();
    m_renderer.Draw(m_meshes, m_view, m_image);
    const QImage image(reinterpret_cast<const uchar*>(m_image.m_pixels.data()), m_image.m_width, m_image.m_height,
                       m_image.m_width * static_cast<int>(sizeof(unsigned)), QImage::Format_RGB32);
    QPainter(this).drawImage(rect(), image);
}

void Viewport::mousePressEvent(QMouseEvent* event)
{
    m_dragged = event->position().toPoint();
}

void Viewport::mouseMoveEvent(QMouseEvent* event)
{
    constexpr float kTurnOfPixel = 0.01F;
    const QPoint place = event->position().toPoint();
    const QPoint way = place - m_dragged;
    m_dragged = place;
    Turn(static_cast<float>(way.x()) * kTurnOfPixel, static_cast<float>(way.y()) * kTurnOfPixel);
}

void Viewport::wheelEvent(QWheelEvent* event)
{
    constexpr float kNotch = 120;
    Zoom(std::pow(1.2F, static_cast<float>(event->angleDelta().y()) / kNotch));
}

void Viewport::keyPressEvent(QKeyEvent* event)
{
    constexpr float kStep = 0.1F;
    switch (event->key())
    {
    case Qt::Key_Left:
        return Turn(-kStep, 0);
    case Qt::Key_Right:
        return Turn(kStep, 0);
    case Qt::Key_Up:
        return Turn(0, -kStep);
    case Qt::Key_Down:
        return Turn(0, kStep);
    case Qt::Key_Plus:
        return Zoom(1.2F);
    case Qt::Key_Minus:
        return Zoom(1 / 1.2F);
    default:
        QWidget::keyPressEvent(event);
    }
}

void Viewport::Turn(float yaw, float pitch)
{
    constexpr float kUpright = 1.5707963F;
    m_view.m_yaw = std::remainder(m_view.m_yaw + yaw, 4 * kUpright);
    m_view.m_pitch = std::clamp(m_view.m_pitch + pitch, -kUpright, kUpright);
    update();
}

void Viewport::Zoom(float factor)
{
    m_view.m_zoom = std::clamp(m_view.m_zoom * factor, View::kLeastZoom, View::kMostZoom);
    update();
}
} // namespace host
