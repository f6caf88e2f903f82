#pragma once

#include "qstylesyntaxhighlighter.h"

// The highlighters of the editor, one per language, each a set of rules.

class QPythonHighlighter : public QStyleSyntaxHighlighter {
    Q_OBJECT
public:
    explicit QPythonHighlighter(QTextDocument* document = nullptr);
};

class QCXXHighlighter : public QStyleSyntaxHighlighter {
    Q_OBJECT
public:
    explicit QCXXHighlighter(QTextDocument* document = nullptr);
};

class QXMLHighlighter : public QStyleSyntaxHighlighter {
    Q_OBJECT
public:
    explicit QXMLHighlighter(QTextDocument* document = nullptr);
};

class QJSONHighlighter : public QStyleSyntaxHighlighter {
    Q_OBJECT
public:
    explicit QJSONHighlighter(QTextDocument* document = nullptr);
};

class QGLSLHighlighter : public QStyleSyntaxHighlighter {
    Q_OBJECT
public:
    explicit QGLSLHighlighter(QTextDocument* document = nullptr);
};

class QLuaHighlighter : public QStyleSyntaxHighlighter {
    Q_OBJECT
public:
    explicit QLuaHighlighter(QTextDocument* document = nullptr);
};
