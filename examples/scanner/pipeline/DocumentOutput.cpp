#include "DocumentOutput.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <QRegularExpression>

namespace scanner {

QString pageFileName(int number) {
    return QStringLiteral("page-%1.png").arg(number);
}

bool writePdf(const std::vector<QImage>& pages, const QString& path, QString* error) {
    if (pages.empty()) {
        if (error) {
            *error = QStringLiteral("no pages to write");
        }
        return false;
    }
    {
        QFile probe(path);
        if (!probe.open(QIODevice::WriteOnly)) {
            if (error) {
                *error = QStringLiteral("cannot write %1: %2").arg(path, probe.errorString());
            }
            return false;
        }
    }
    QPdfWriter writer(path);
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setPageMargins(QMarginsF(0, 0, 0, 0));
    writer.setResolution(150);
    writer.setCreator(QStringLiteral("qxd-scanner"));
    QPainter painter;
    if (!painter.begin(&writer)) {
        if (error) {
            *error = QStringLiteral("cannot start a PDF in %1").arg(path);
        }
        return false;
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    for (std::size_t i = 0; i < pages.size(); ++i) {
        if (i > 0) {
            writer.newPage();
        }
        const QRectF area = painter.viewport();
        const QImage& page = pages[i];
        if (page.isNull()) {
            continue;
        }
        const QSizeF fitted = QSizeF(page.size()).scaled(area.size(), Qt::KeepAspectRatio);
        const QRectF target(area.center().x() - fitted.width() / 2,
                            area.center().y() - fitted.height() / 2, fitted.width(),
                            fitted.height());
        painter.drawImage(target, page);
    }
    if (!painter.end()) {
        if (error) {
            *error = QStringLiteral("cannot finish the PDF %1").arg(path);
        }
        return false;
    }
    return true;
}

QStringList writeDocument(const std::vector<QImage>& pages, const QString& folder,
                          const QString& pdfName, QString* error) {
    QStringList written;
    if (!QDir().mkpath(folder)) {
        if (error) {
            *error = QStringLiteral("cannot make the folder %1").arg(folder);
        }
        return written;
    }
    const QDir dir(folder);
    for (std::size_t i = 0; i < pages.size(); ++i) {
        const QString path = dir.filePath(pageFileName(int(i) + 1));
        if (!pages[i].save(path, "PNG")) {
            if (error) {
                *error = QStringLiteral("cannot write %1").arg(path);
            }
            return written;
        }
        written << path;
    }
    if (!pages.empty()) {
        const QString pdf = dir.filePath(pdfName);
        if (!writePdf(pages, pdf, error)) {
            return written;
        }
        written << pdf;
    }
    return written;
}

int pdfPageCount(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QByteArray data = file.readAll();
    if (!data.startsWith("%PDF-")) {
        return -1;
    }
    // The root of the page tree: /Type /Pages ... /Count n.
    static const QRegularExpression pages(
        QStringLiteral(R"(/Type\s*/Pages\b[^>]*?/Count\s+(\d+))"));
    static const QRegularExpression pagesCountFirst(
        QStringLiteral(R"(/Count\s+(\d+)[^>]*?/Type\s*/Pages\b)"));
    const QString text = QString::fromLatin1(data);
    for (const auto* pattern : {&pages, &pagesCountFirst}) {
        const auto match = pattern->match(text);
        if (match.hasMatch()) {
            return match.captured(1).toInt();
        }
    }
    return -1;
}

}  // namespace scanner
