// SPDX-License-Identifier: GPL-3.0-or-later
// Typesets the help document from its Markdown source into an A4 PDF with page numbers:
// make_help_pdf_qt IN.md OUT.pdf
#include <QFile>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QPdfWriter>
#include <QSaveFile>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextTable>
#include <cstdio>
#include <cstdlib>

namespace {

// Headings a little larger than the Markdown reader makes them, with room above; code in a
// monospaced face on a light ground.
void style_blocks(QTextDocument& document)
{
    const QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        QTextCursor cursor(block);
        QTextBlockFormat format = block.blockFormat();
        if (const int level = format.headingLevel(); level > 0) {
            format.setTopMargin(level == 1 ? 0 : 14);
            format.setBottomMargin(6);
            if (level == 1) {
                format.setPageBreakPolicy(QTextFormat::PageBreak_AlwaysBefore);
            }
            cursor.setBlockFormat(format);
            cursor.select(QTextCursor::BlockUnderCursor);
            QTextCharFormat chars;
            chars.setForeground(QColor(0x24, 0x46, 0x6e));
            cursor.mergeCharFormat(chars);
        } else if (format.nonBreakableLines()) { // a code block
            format.setBackground(QColor(0xf0, 0xf3, 0xf7));
            format.setLeftMargin(12);
            cursor.setBlockFormat(format);
            cursor.select(QTextCursor::BlockUnderCursor);
            QTextCharFormat chars;
            chars.setFont(mono);
            chars.setFontPointSize(8.5);
            cursor.mergeCharFormat(chars);
        }
    }
    // The first heading is the title page's; it needs no break before it.
    QTextCursor first(document.begin());
    QTextBlockFormat format = document.begin().blockFormat();
    format.setPageBreakPolicy(QTextFormat::PageBreak_Auto);
    first.setBlockFormat(format);
}

// Tables with room inside their cells and thin grey rules.
void style_tables(QTextDocument& document)
{
    for (QTextFrame* frame : document.rootFrame()->childFrames()) {
        if (auto* table = qobject_cast<QTextTable*>(frame)) {
            QTextTableFormat format = table->format();
            format.setCellPadding(3);
            format.setCellSpacing(0);
            format.setBorder(1);
            format.setBorderStyle(QTextFrameFormat::BorderStyle_Solid);
            format.setBorderBrush(QColor(0xa0, 0xa8, 0xb4));
            format.setBorderCollapse(true);
            format.setWidth(QTextLength(QTextLength::PercentageLength, 100));
            table->setFormat(format);
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_help_pdf_qt IN.md OUT.pdf\n");
        return 2;
    }
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QGuiApplication application(argc, argv);
    if (QFontDatabase::families().isEmpty()) {
        std::fprintf(stderr, "make_help_pdf_qt: no fonts found (Debian: install fonts-dejavu-core)\n");
        return 1;
    }
    QFile source(QString::fromLocal8Bit(argv[1]));
    if (!source.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "make_help_pdf_qt: cannot read %s\n", argv[1]);
        return 1;
    }
    QTextDocument document;
    QFont body(QStringLiteral("DejaVu Sans"));
    body.setPointSizeF(10);
    document.setDefaultFont(body);
    document.setMarkdown(QString::fromUtf8(source.readAll()), QTextDocument::MarkdownDialectGitHub);
    style_blocks(document);
    style_tables(document);

    QSaveFile output(QString::fromLocal8Bit(argv[2])); // a half-written PDF never takes its name
    if (!output.open(QIODevice::WriteOnly)) {
        std::fprintf(stderr, "make_help_pdf_qt: cannot write %s\n", argv[2]);
        return 1;
    }
    {
        QPdfWriter writer(&output);
        writer.setPageSize(QPageSize(QPageSize::A4));
        writer.setResolution(300);
        writer.setTitle(QStringLiteral("Quirefold Help"));
        writer.setCreator(QStringLiteral("Quirefold"));
        document.print(&writer);
    }
    if (!output.commit()) {
        std::fprintf(stderr, "make_help_pdf_qt: cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
