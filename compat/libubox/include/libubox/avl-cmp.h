/* SPDX-License-Identifier: MIT */
/* Ready-made key comparisons for avl_init. */
#ifndef LIBUBOX_AVL_CMP_H
#define LIBUBOX_AVL_CMP_H

/* Keys are C strings; ptr is not used. */
int avl_strcmp(const void *k1, const void *k2, void *ptr);

#endif
