#include "qsyntaxhighlighters.h"

namespace {
const QString kNumber = QStringLiteral("\\b(0b|0x){0,1}[\\d.']+\\b");
const QString kCallName = QStringLiteral("\\b([A-Za-z0-9_]+(?:\\s+|::))*([A-Za-z0-9_]+)(?=\\()");
const QString kTypeDefinition = QStringLiteral("\\b([A-Za-z0-9_]+)\\s+[A-Za-z]{1}[A-Za-z0-9_]+\\s*[;=]");
} // namespace

QPythonHighlighter::QPythonHighlighter(QTextDocument* document) : QStyleSyntaxHighlighter(document)
{
    m_function = QRegularExpression(QStringLiteral("\\b([A-Za-z0-9_]+(?:\\.))*([A-Za-z0-9_]+)(?=\\()"));
    m_typeDefinition = QRegularExpression(kTypeDefinition);
    addLanguage(QStringLiteral(":/languages/python.xml"));
    addRule(kNumber, QStringLiteral("Number"));
    addRule(QStringLiteral("\"[^\\n\"]*\""), QStringLiteral("String"));
    addRule(QStringLiteral("'[^\\n\"]*'"), QStringLiteral("String"));
    addRule(QStringLiteral("#[^\\n]*"), QStringLiteral("Comment"));
    addSpan(QStringLiteral("(''')"), QStringLiteral("(''')"), QStringLiteral("String"));
    addSpan(QStringLiteral("(\"\"\")"), QStringLiteral("(\"\"\")"), QStringLiteral("String"));
}

QCXXHighlighter::QCXXHighlighter(QTextDocument* document) : QStyleSyntaxHighlighter(document)
{
    m_include = QRegularExpression(QStringLiteral("^\\s*#\\s*include\\s*([<\"][^:?\"<>\\|]+[\">])"));
    m_function = QRegularExpression(QStringLiteral(
        "\\b([_a-zA-Z][_a-zA-Z0-9]*\\s+)?((?:[_a-zA-Z][_a-zA-Z0-9]*\\s*::\\s*)*[_a-zA-Z][_a-zA-Z0-9]*)(?=\\s*\\()"));
    m_typeDefinition =
        QRegularExpression(QStringLiteral("\\b([_a-zA-Z][_a-zA-Z0-9]*)\\s+[_a-zA-Z][_a-zA-Z0-9]*\\s*[;=]"));
    addLanguage(QStringLiteral(":/languages/cpp.xml"));
    // Decimal, hexadecimal, octal and binary literals with ' separators,
    // fractions, exponents and suffixes.
    addRule(QStringLiteral("\\b(?:0[xX][0-9a-fA-F']+|0[bB][01']+|\\d[\\d']*(?:\\.[\\d']*)?(?:[eE][+-]?\\d+)?|\\.\\d+"
                           "(?:[eE][+-]?\\d+)?)(?:[uU]?[lL]{0,2}|[lL]{0,2}[uU]?|[fF])\\b"),
            QStringLiteral("Number"));
    addRule(QStringLiteral("^\\s*#\\s*[a-zA-Z_]+"), QStringLiteral("Preprocessor"));
    addRule(QStringLiteral("\"(?:[^\"\\\\\\n]|\\\\.)*\""), QStringLiteral("String"));
    addRule(QStringLiteral("'(?:[^'\\\\\\n]|\\\\.)*'"), QStringLiteral("String"));
    addRule(QStringLiteral("//[^\\n]*"), QStringLiteral("Comment"));
    addSpan(QStringLiteral("/\\*"), QStringLiteral("\\*/"), QStringLiteral("Comment"));
}

QXMLHighlighter::QXMLHighlighter(QTextDocument* document) : QStyleSyntaxHighlighter(document)
{
    addRule(QStringLiteral("<[\\s]*[/]?[\\s]*([^\\n][a-zA-Z-_:]*)(?=[\\s/>])"), QStringLiteral("Keyword"), 1);
    addRule(QStringLiteral("\\w+(?=\\=)"), QStringLiteral("Type"));
    addRule(QStringLiteral("\"[^\\n\"]+\"(?=\\??[\\s/>])"), QStringLiteral("String"));
    addSpan(QStringLiteral("<!--"), QStringLiteral("-->"), QStringLiteral("Comment"));
}

QJSONHighlighter::QJSONHighlighter(QTextDocument* document) : QStyleSyntaxHighlighter(document)
{
    addRule(QStringLiteral("\\b(?:null|true|false)\\b"), QStringLiteral("Keyword"));
    addRule(QStringLiteral("-?\\b\\d+(?:\\.\\d+)?(?:[eE][+-]?\\d+)?\\b"), QStringLiteral("Number"));
    addRule(QStringLiteral("\"(?:[^\"\\\\\\n]|\\\\.)*\""), QStringLiteral("String"));
    // A key holds no quote: otherwise a value and the next key would read as one key.
    addRule(QStringLiteral("(\"[^\\r\\n:\"]+?\")\\s*:"), QStringLiteral("Type"), 1);
}

QGLSLHighlighter::QGLSLHighlighter(QTextDocument* document) : QStyleSyntaxHighlighter(document)
{
    m_function = QRegularExpression(kCallName);
    m_typeDefinition = QRegularExpression(kTypeDefinition);
    addLanguage(QStringLiteral(":/languages/glsl.xml"));
    addRule(kNumber, QStringLiteral("Number"));
    addRule(QStringLiteral("#[a-zA-Z_]+"), QStringLiteral("Preprocessor"));
    addRule(QStringLiteral("//[^\\n]*"), QStringLiteral("Comment"));
}

QLuaHighlighter::QLuaHighlighter(QTextDocument* document) : QStyleSyntaxHighlighter(document)
{
    m_include = QRegularExpression(QStringLiteral("require\\s*([(\"'][a-zA-Z0-9*._]+['\")])"));
    m_function = QRegularExpression(kCallName);
    m_typeDefinition = QRegularExpression(QStringLiteral("\\b([A-Za-z0-9_]+)\\s+[A-Za-z]{1}[A-Za-z0-9_]+\\s*[=]"));
    addLanguage(QStringLiteral(":/languages/lua.xml"), QStringLiteral("\\b\\s{0,1}%1\\s{0,1}\\b"));
    addRule(kNumber, QStringLiteral("Number"));
    addRule(QStringLiteral("[\"'][^\\n\"]*[\"']"), QStringLiteral("String"));
    addRule(QStringLiteral("#\\![a-zA-Z_]+"), QStringLiteral("Preprocessor"));
    addRule(QStringLiteral("--[^\\n]*"), QStringLiteral("Comment"));
    addSpan(QStringLiteral("--\\[\\["), QStringLiteral("--\\]\\]"), QStringLiteral("Comment"));
    addSpan(QStringLiteral("\\[\\["), QStringLiteral("\\]\\]"), QStringLiteral("String"));
}
