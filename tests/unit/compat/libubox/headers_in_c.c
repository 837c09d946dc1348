/* SPDX-License-Identifier: MIT */
/* The headers are C headers: their inline functions and macros, compiled as C. */
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
#include <stdlib.h>

int sum_of_fields_in_c(void);

struct c_item {
    struct avl_node node;
    struct list_head list;
    uint32_t value;
};

static int add_items(struct blob_buf *buf, struct avl_tree *tree)
{
    struct c_item *item;
    int added = 0;

    avl_for_each_element(tree, item, node)
    {
        added += blobmsg_add_u32(buf, (const char *)item->node.key, item->value) == 0;
    }
    return added;
}

/* 7, by way of a tree and a message; -1 if anything on the way fails. */
int sum_of_fields_in_c(void)
{
    static const struct blobmsg_policy policy[] = {{"a", BLOBMSG_TYPE_INT32}, {"b", BLOBMSG_TYPE_INT32}};
    struct c_item a = {.value = 3};
    struct c_item b = {.value = 4};
    struct blob_attr *out[ARRAY_SIZE(policy)];
    struct blob_buf buf = {0};
    struct avl_tree tree;
    int sum = -1;

    avl_init(&tree, avl_strcmp, false, NULL);
    a.node.key = "a";
    b.node.key = "b";
    avl_insert(&tree, &a.node);
    avl_insert(&tree, &b.node);
    blobmsg_buf_init(&buf);
    if (add_items(&buf, &tree) == 2 && blobmsg_parse_attr(policy, ARRAY_SIZE(policy), out, buf.head) == 0)
        sum = (int)(blobmsg_get_u32(out[0]) + blobmsg_get_u32(out[1]));
    blob_buf_free(&buf);
    return sum;
}
