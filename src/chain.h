/**
 * @file chain.h
 * @brief Chains whose nodes hold the link to the next, as this process's lists of locks, sets and arenas do.
 */
#ifndef CHAIN_H
#define CHAIN_H

/** Takes a node out, wherever it stands; false when it is not in the chain. */
template <class Node>
bool Unlink(Node*& head, Node* Node::*next, const Node* wanted) {
    Node** link = &head;
    while (*link != nullptr && *link != wanted)
        link = &((*link)->*next);
    if (*link == nullptr) return false;
    *link = wanted->*next;
    return true;
}

#endif  // CHAIN_H
