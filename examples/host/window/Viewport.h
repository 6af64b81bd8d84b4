#pragma once

#include "examples/host/model/Renderer.h"

#include <QWidget>

namespace host
{
/// Shows meshes; turned by dragging and with the arrow keys, zoomed with the wheel and with + and -.
class Viewport : public QWidget
{
    Q_OBJECT

public:
    explicit Viewport(QWidget* parent = nullptr);

    void Show(const Meshes& meshes);
    void ShowAsWires(bool asWires);
    const View& GetView() const noexcept { return m_view; }
    QSize sizeHint() const override { return {800, 600}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void Turn(float yaw, float pitch);
    void Zoom(float factor);

    Meshes m_meshes;
    View m_view;
    Renderer m_renderer;
    Image m_image;
    QPoint m_dragged;
};
} // namespace host
