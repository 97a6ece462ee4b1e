/*
 * A circular doubly linked list whose link lives inside each entry. It allocates nothing and knows
 * nothing of what it links: where `list_head` is the first member of an entry, a pointer to the
 * link is a pointer to the entry.
 *
 * A ring runs through a head link; it is empty when the head points to itself. To walk it, start at
 * head->next and follow `next` until the head is met again; to remove entries on the way, remember
 * the following link before handling the current one.
 */
#ifndef LIBIV_LIST_H
#define LIBIV_LIST_H

namespace iv::internal {

struct list_head {
    list_head* next;
    list_head* prev;
};

inline void list_init(list_head* list) {
    list->next = list;
    list->prev = list;
}

/// Links `newe` between two neighbours.
inline void __list_add(list_head* newe, list_head* prev, list_head* next) {
    next->prev = newe;
    newe->next = next;
    newe->prev = prev;
    prev->next = newe;
}

/// Makes `newe` the last entry, so that the ring keeps the order of insertion.
inline void list_add_tail(list_head* newe, list_head* head) {
    __list_add(newe, head->prev, head);
}

/// Joins the neighbours of an entry; the links of the entry itself stay as they were.
inline void __list_del(list_head* prev, list_head* next) {
    next->prev = prev;
    prev->next = next;
}

} // namespace iv::internal

#endif
