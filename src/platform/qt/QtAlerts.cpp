#include "platform/qt/QtAlerts.h"

#include <QMessageBox>
#include <QPushButton>

#include <memory>
#include <vector>

namespace tamarind {

void QtAlerts::runModal(AlertContent content, std::function<void(std::size_t button)> done) {
    auto* box = new QMessageBox(QMessageBox::Warning, QString::fromStdString(content.title),
                                QString::fromStdString(content.text));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::ApplicationModal);
    auto buttons = std::make_shared<std::vector<QAbstractButton*>>();
    for (std::size_t index = 0; index < content.buttons.size(); ++index) {
        QMessageBox::ButtonRole role = index == 0 ? QMessageBox::AcceptRole
                                       : index + 1 == content.buttons.size() ? QMessageBox::RejectRole
                                                                              : QMessageBox::ActionRole;
        buttons->push_back(box->addButton(QString::fromStdString(content.buttons[index]), role));
    }
    if (!buttons->empty()) box->setDefaultButton(static_cast<QPushButton*>(buttons->front()));
    QObject::connect(box, &QMessageBox::finished, box, [box, buttons, done = std::move(done)](int) {
        std::size_t answer = buttons->empty() ? 0 : buttons->size() - 1;
        for (std::size_t index = 0; index < buttons->size(); ++index)
            if (box->clickedButton() == (*buttons)[index]) answer = index;
        if (done) done(answer);
    });
    box->open();
    box->raise();
    box->activateWindow();
}

}  // namespace tamarind
