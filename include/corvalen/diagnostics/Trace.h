#pragma once

#include <string>
#include <utility>
#include <vector>

#include "corvalen/Export.h"

namespace System::Diagnostics {

/// Receives trace text; a host derives from it, overrides Write of one text and gives it to the collection of
/// CTrace. Nothing in the library calls a listener: who wants text out walks the collection and does.
///
/// A Write of one text that wants indentation calls the base form first, which writes the indentation, once
/// for each line, through the overriding Write itself:
///
///     void Write(std::string text) override {
///         CTraceListener::Write(text);  // may come back here with blanks
///         m_Out += text;
///     }
///
/// Threads: no protection of its own; one thread at a time.
class CORVALEN_API CTraceListener {
public:
    CTraceListener() = default;
    CTraceListener(CTraceListener const&) = delete;
    CTraceListener& operator=(CTraceListener const&) = delete;

    /// Blanks for each level, 4 at the start, and the level, 0 at the start. Any number is kept; a product of
    /// 0 or less means no indentation.
    [[nodiscard]] int get_IndentLevel() { return m_IndentLevel; }
    void put_IndentLevel(int level) { m_IndentLevel = level; }
    [[nodiscard]] int get_IndentSize() { return m_IndentSize; }
    void put_IndentSize(int size) { m_IndentSize = size; }

    /// Sets the name; without an argument, returns it.
    void put_Name(std::string name) { m_Name = std::move(name); }
    [[nodiscard]] std::string put_Name() { return m_Name; }

    /// End the output, and bring out what is held back, in the way of the derived class.
    virtual void Close() = 0;
    virtual void Flush() = 0;
    /// Do nothing here.
    virtual void Fail(std::string message, std::string detail);
    virtual void Fail(std::string message);
    /// Writes " category: text" through the form of one text.
    virtual void Write(std::string text, std::string category);
    /// Writes the indentation if a line starts here, and no text of its own.
    virtual void Write(std::string text);
    /// Writes the line " category: text" through the form of one text.
    virtual void WriteLine(std::string text, std::string category);
    /// Writes `text` with a line feed through Write; the next text starts a line.
    virtual void WriteLine(std::string text);

protected:
    /// Whether the next text starts a line; true at the start.
    virtual bool get_NeedIndent();
    virtual void put_NeedIndent(bool isNeeded);
    /// Writes level times size blanks through Write, also when that is none, having noted that the line has
    /// begun.
    virtual void WriteIndent();

public:
    virtual ~CTraceListener();

private:
    int m_IndentLevel = 0;
    int m_IndentSize = 4;
    std::string m_Name;
    bool m_NeedIndent = true;
};

/// Hands each text to the debugger in one call, as it is and not indented.
class CORVALEN_API CDefaultTraceListener : public CTraceListener {
public:
    using CTraceListener::Write;

    /// Do nothing here: nothing is held back.
    void Close() override;
    void Flush() override;
    void Write(std::string text) override;
};

/// Listeners in the order of their addition; at the start a CDefaultTraceListener.
///
/// Ownership: the listeners that are in it belong to the collection, but only Clear destroys them; the
/// destructor does not.
/// Threads: none may change it while another walks it.
class CORVALEN_API CTraceListenerCollection {
public:
    using Iterator = std::vector<CTraceListener*>::iterator;

    CTraceListenerCollection();
    ~CTraceListenerCollection();
    CTraceListenerCollection(CTraceListenerCollection const&) = delete;
    CTraceListenerCollection& operator=(CTraceListenerCollection const&) = delete;

    /// Takes over `listener`, made with new; neither null nor one that is in it already is refused.
    void Add(CTraceListener* listener);
    /// Destroys all listeners.
    void Clear();

    /// A walk takes Begin and calls Next until it gives null.
    [[nodiscard]] Iterator Begin();
    [[nodiscard]] Iterator End();
    /// The listener at `position`, which moves on by one; null at the end.
    CTraceListener* Next(Iterator& position);
    /// The listener at `position`; null at the end.
    [[nodiscard]] CTraceListener* Current(Iterator position);

protected:
    std::vector<CTraceListener*> m_Items;
    CTraceListener* m_DefaultListener;  // the first item, until Clear
};

/// Settings of the trace and its listeners. Its output operations take their arguments and do nothing: they
/// reach no listener.
///
/// Threads: plain variables; one thread at a time.
class CORVALEN_API CTrace {
public:
    /// Makes the collection of listeners; not counted, so once before each Terminate.
    static void Init();
    /// Destroys the collection and all listeners in it; does nothing without one.
    static void Terminate();

    /// Values that are kept, in any range and over Terminate and Init, and that nothing reads: false, 0 and 5
    /// at the start.
    [[nodiscard]] static bool get_AutoFlush();
    static void put_AutoFlush(bool isOn);
    [[nodiscard]] static int get_IndentLevel();
    static void put_IndentLevel(int level);
    [[nodiscard]] static int get_IndentSize();
    static void put_IndentSize(int size);

    /// The collection; null outside Init and Terminate.
    [[nodiscard]] static CTraceListenerCollection*& GetListeners();

    /// Do nothing, whatever the arguments.
    static void Assert(bool holds);
    static void Assert(bool holds, std::string message);
    static void Assert(bool holds, std::string message, std::string detail);
    static void Fail(std::string message);
    static void Fail(std::string message, std::string detail);
    static void Write(std::string text);
    static void Write(std::string text, std::string category);
    static void WriteLine(std::string text);
    static void WriteLine(std::string text, std::string category);
    static void WriteIf(bool holds, std::string text);
    static void WriteIf(bool holds, std::string text, std::string category);
    static void WriteLineIf(bool holds, std::string text);
    static void WriteLineIf(bool holds, std::string text, std::string category);
    static void Indent();
    static void Unindent();
    static void Flush();
    static void Close();

protected:
    static CTraceListenerCollection* m_Listeners;
    static bool m_bAutoFlush;
    static int m_nIndendLevel;
    static int m_nIndendSize;
};

}  // namespace System::Diagnostics
