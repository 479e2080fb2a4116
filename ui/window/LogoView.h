#pragma once

#include <QSvgRenderer>
#include <QWidget>

#include "ui/Outlets.h"

namespace window {

/// The application's icon, drawn at whatever density the screen has.
class LogoView : public QWidget, public outlets::ImageView {
 public:
  static constexpr int kSide = 56;
  explicit LogoView(QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QSvgRenderer picture_;
};

/// The application's icon in the sizes that window managers ask for.
[[nodiscard]] QIcon applicationIcon();

}  // namespace window
