// The sequence string: `( root ( child child ( grandchild ) child ) )`.
#pragma once

#include "resmgt/literals/liString.h"
#include "zvbase/containers.h"

namespace Zv {

/// Parses in its constructor. Any fault is a `DevMgrEx::ConfigSyntaxError` without detail.
class SeqConfigParser
{
public:
    /// Parent and child; the top of the tree has the empty string as parent.
    using Edge = Vector<LiString>;

    explicit SeqConfigParser(LiString const &config);

    /// In the order of the string.
    Vector<Edge> const &getEdges() const { return _edges; }

private:
    enum class State
    {
        start,    // nothing read
        group,    // behind the opening bracket
        root,     // behind the first name
        children, // behind the bracket that opens a name's children
        name,     // behind any other name
        closed,   // behind a closing bracket
        error
    };

    static Vector<LiString> tokenise(LiString const &config);
    State step(State state, LiString const &token);
    State enterGroup(LiString const &parent, LiString const &token, State next);
    [[noreturn]] static void fail();

    Vector<Edge> _edges;
    LiString _config;
    Vector<LiString> _parents;
    LiString _last;
};

} // namespace Zv
