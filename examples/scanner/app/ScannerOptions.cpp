#include "ScannerOptions.h"

#include "ExampleSupport.h"
#include "platform/environment/Environment.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstring>

namespace scanner {

bool asksForOffscreen(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--offscreen") == 0) {
            return true;
        }
    }
    return false;
}

std::optional<ScannerOptions> ScannerOptions::parse(const QCoreApplication& app) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Scans documents with the camera: finds the page, takes it when it is steady, lets you "
        "turn it upright, and writes each page as PNG and all of them as one PDF.\n\n"
        "Keys: Space or Return takes a picture, Escape finishes and saves, T torch, C camera; "
        "on the edit screen Left/Right turn, Return adds the page, Escape drops it."));
    parser.addHelpOption();
    const QCommandLineOption camera(
        QStringLiteral("camera"),
        QStringLiteral("The camera: back, front, virtual or an ID from --list-cameras."),
        QStringLiteral("ID"));
    const QCommandLineOption list(QStringLiteral("list-cameras"),
                                  QStringLiteral("Lists the cameras and exits."));
    const QCommandLineOption output(
        QStringLiteral("output"), QStringLiteral("Folder for the pages and the PDF (default out)."),
        QStringLiteral("DIR"), QStringLiteral("out"));
    const QCommandLineOption pages(
        QStringLiteral("pages"),
        QStringLiteral(
            "Finish after N pages (headless default 2; with a window, Escape finishes)."),
        QStringLiteral("N"));
    const QCommandLineOption noAuto(QStringLiteral("no-auto"),
                                    QStringLiteral("No automatic pictures: only the trigger."));
    const QCommandLineOption offscreen(
        QStringLiteral("offscreen"),
        QStringLiteral("Run headless on the virtual camera, as without a display."));
    const QCommandLineOption idiom(
        QStringLiteral("idiom"),
        QStringLiteral("Screen layout: phone or pad (default: pad for a wide window)."),
        QStringLiteral("phone|pad"));
    const QCommandLineOption detect(
        QStringLiteral("detect"),
        QStringLiteral("Scans the photos given as arguments instead: prints the corners found "
                       "(JSON, one line a photo) and writes each corrected page."));
    parser.addOptions({camera, list, output, pages, noAuto, offscreen, idiom, detect});
    parser.addPositionalArgument(QStringLiteral("FILE"),
                                 QStringLiteral("With --detect: the photos."),
                                 QStringLiteral("[FILE...]"));
    parser.process(app);

    ScannerOptions options;
    options.camera = parser.value(camera).trimmed();
    options.listCameras = parser.isSet(list);
    options.output = parser.value(output);
    options.autoCapture = !parser.isSet(noAuto);
    options.offscreen = parser.isSet(offscreen);
    if (parser.isSet(pages)) {
        bool ok = false;
        options.pages = parser.value(pages).toInt(&ok);
        if (!ok || options.pages < 1) {
            examples::printError(QStringLiteral("--pages wants a whole number of at least 1, not "
                                                "\"%1\"")
                                     .arg(parser.value(pages)));
            return std::nullopt;
        }
        options.pagesGiven = true;
    }
    if (parser.isSet(idiom)) {
        const QString value = parser.value(idiom).toLower();
        if (value == QStringLiteral("phone")) {
            options.idiom = platform::idiom::kPhone;
        } else if (value == QStringLiteral("pad")) {
            options.idiom = platform::idiom::kPad;
        } else {
            examples::printError(
                QStringLiteral("--idiom is phone or pad, not \"%1\"").arg(parser.value(idiom)));
            return std::nullopt;
        }
    }
    const QStringList files = parser.positionalArguments();
    if (parser.isSet(detect)) {
        if (files.isEmpty()) {
            examples::printError(QStringLiteral("--detect wants at least one photo"));
            return std::nullopt;
        }
        options.detect = files;
    } else if (!files.isEmpty()) {
        examples::printError(QStringLiteral("unexpected argument \"%1\" (photos go with --detect)")
                                 .arg(files.first()));
        return std::nullopt;
    }
    return options;
}

}  // namespace scanner
