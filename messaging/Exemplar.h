#ifndef TEV_MESSAGING_EXEMPLAR_H
#define TEV_MESSAGING_EXEMPLAR_H

/// Tag for the constructors that register an object as the prototype of its message id.
struct Exemplar {};

#endif
