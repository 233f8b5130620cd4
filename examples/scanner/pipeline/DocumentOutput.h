#pragma once

#include <QImage>
#include <QString>
#include <QStringList>

#include <vector>

namespace scanner {

/// A page's file name in the output folder: page-1.png, page-2.png, ...
QString pageFileName(int number);

/// Writes each page as a PNG and all of them as one PDF of A4 pages (each
/// picture fitted to its page and centred) into folder, which is made if
/// missing. Returns the paths written, in order (the PDF last); on failure
/// fills error and returns what was written before it.
QStringList writeDocument(const std::vector<QImage>& pages, const QString& folder,
                          const QString& pdfName, QString* error);

/// Writes pages as one PDF of A4 pages to path. False (with error) when the
/// file cannot be written.
bool writePdf(const std::vector<QImage>& pages, const QString& path, QString* error);

/// The number of pages a PDF file declares (its page tree's count); -1 when
/// the file is not a readable PDF.
int pdfPageCount(const QString& path);

}  // namespace scanner
