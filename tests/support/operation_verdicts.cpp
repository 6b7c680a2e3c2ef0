#include "support/operation_verdicts.h"

namespace testhost {

namespace {

struct Row {
  const char* operations;  // names, without the block size where it makes no difference
  const char* verdicts;
};

const Row kRows[] = {
    {"create_file",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, append-interrupted 1
5 marked
6 clean
full disk:
4 clean
5 dir-beyond-size 1
no memory:
5 clean
)"},
    {"create_file_in_new_node_block",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3-4 marked
5 marked, node-leaked 1
6 marked, append-interrupted 1
7 marked
8 clean
full disk:
6 clean
7 dir-beyond-size 1
no memory:
7 clean
)"},
    {"create_file_in_new_parent_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, block-leaked 1, node-leaked 1
5 marked
6 clean
full disk:
4 clean
5 block-leaked 1
no memory:
5 clean
)"},
    {"create_file_in_new_root_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, block-leaked 1, node-leaked 1
5 marked
6 clean
full disk:
4 clean
5 block-leaked 1
no memory:
3 clean
)"},
    {"create_file_in_new_node_and_parent_block",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3-4 marked
5 marked, node-leaked 1
6 marked, block-leaked 1, node-leaked 1
7 marked
8 clean
full disk:
6 clean
7 block-leaked 1
no memory:
7 clean
)"},
    {"create_file_from_chain",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4-5 marked
6 marked, node-leaked 1
7-8 marked, block-leaked 1, node-leaked 1
9 marked
10 clean
full disk:
7-9 block-leaked 1
no memory:
8 clean
9 block-leaked 1
end of memory:
8-9 clean
)"},
    {"create_file_popping_record_for_node_block",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4-5 clean
6 node-leaked 1
7 block-leaked 1, node-leaked 1
8-9 clean
full disk:
7 clean
8 block-leaked 1
no memory:
8 clean
)"},
    {"create_file_popping_record_for_parent_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4-5 marked, block-leaked 1, node-leaked 1
6 marked
7 clean
full disk:
4 clean
5-6 block-leaked 1
no memory:
5-6 clean
)"},
    {"create_file_in_indirect_parent_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, block-leaked 1, node-leaked 1
5 marked, block-leaked 2, node-leaked 1
6 marked
7 clean
full disk:
4 clean
5 block-leaked 1
6 block-leaked 2
no memory:
5 clean
6 block-leaked 1
)"},
    {"create_file_in_further_indirect_parent_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, block-leaked 1, node-leaked 1
5 marked, growth-interrupted 1, node-leaked 1
6 marked
7 clean
full disk:
4 clean
5 block-leaked 1
6 growth-interrupted 1
no memory:
5 clean
)"},
    {"create_file_in_indirect_parent_block_from_chain",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4-5 marked, block-leaked 1, node-leaked 1
6-7 marked, block-leaked 2, node-leaked 1
8 marked
9 clean
full disk:
4 clean
5-6 block-leaked 1
7-8 block-leaked 2
no memory:
5-6 clean
7 block-leaked 1
8 block-leaked 2
)"},
    {"create_file_popping_record_before_another",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4-5 clean
6 node-leaked 1
7 append-interrupted 1
8-9 clean
full disk:
7 clean
8 dir-beyond-size 1
no memory:
8 clean
)"},
    {"create_directory",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, block-leaked 1, node-leaked 1
5 marked, node-leaked 1
6 marked, append-interrupted 1
7 marked
8 clean
full disk:
4-6 clean
7 dir-beyond-size 1
no memory:
5-6 clean
end of memory:
5 clean
6 block-leaked 1
)"},
    {"create_directory_in_new_node_block",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3-4 marked
5 marked, node-leaked 1
6 marked, block-leaked 1, node-leaked 1
7 marked, node-leaked 1
8 marked, append-interrupted 1
9 marked
10 clean
full disk:
6-8 clean
9 dir-beyond-size 1
no memory:
7-8 clean
end of memory:
7 clean
8 block-leaked 1
)"},
    {"create_directory_in_new_parent_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, block-leaked 1, node-leaked 1
5 marked, node-leaked 1
6 marked, block-leaked 1, node-leaked 1
7 marked
8 clean
full disk:
4-6 clean
7 block-leaked 1
no memory:
5-6 clean
end of memory:
5 clean
6 block-leaked 1
)"},
    {"create_directory_in_new_root_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, block-leaked 1, node-leaked 1
5 marked, node-leaked 1
6 marked, block-leaked 1, node-leaked 1
7 marked
8 clean
full disk:
4-6 clean
7 block-leaked 1
no memory:
3-4 clean
end of memory:
3 clean
4 block-leaked 1
)"},
    {"create_directory_in_new_node_and_parent_block",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3-4 marked
5 marked, node-leaked 1
6 marked, block-leaked 1, node-leaked 1
7 marked, node-leaked 1
8 marked, block-leaked 1, node-leaked 1
9 marked
10 clean
full disk:
6-8 clean
9 block-leaked 1
no memory:
7-8 clean
end of memory:
7 clean
8 block-leaked 1
)"},
    {"create_directory_from_chain",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4-5 marked
6 marked, node-leaked 1
7-8 marked, block-leaked 1, node-leaked 1
9 marked, node-leaked 1
10-11 marked, block-leaked 1, node-leaked 1
12 marked
13 clean
full disk:
7-8 block-leaked 1
9 clean
10-12 block-leaked 1
no memory:
8 clean
9 block-leaked 1
10 clean
11 block-leaked 1
end of memory:
8-9 clean
10-11 block-leaked 1
)"},
    {"create_directory_popping_record_for_node_block",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4-5 clean
6 node-leaked 1
7 block-leaked 1, node-leaked 1
8 node-leaked 1
9 block-leaked 1, node-leaked 1
10-11 clean
full disk:
7-9 clean
10 block-leaked 1
no memory:
8-9 clean
end of memory:
8 clean
9 block-leaked 1
)"},
    {"create_directory_popping_record_for_parent_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4-5 marked, block-leaked 1, node-leaked 1
6 marked, node-leaked 1
7-8 marked, block-leaked 1, node-leaked 1
9 marked
10 clean
full disk:
4 clean
5 block-leaked 1
6 clean
7-9 block-leaked 1
no memory:
5-8 clean
end of memory:
5-6 clean
7-8 block-leaked 1
)"},
    {"create_directory_in_indirect_parent_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, block-leaked 1, node-leaked 1
5 marked, node-leaked 1
6 marked, block-leaked 1, node-leaked 1
7 marked, block-leaked 2, node-leaked 1
8 marked
9 clean
full disk:
4-6 clean
7 block-leaked 1
8 block-leaked 2
no memory:
5-6 clean
7 block-leaked 1
end of memory:
5 clean
6 block-leaked 1
7 block-leaked 2
)"},
    {"create_directory_in_further_indirect_parent_block",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4 marked, block-leaked 1, node-leaked 1
5 marked, node-leaked 1
6 marked, block-leaked 1, node-leaked 1
7 marked, growth-interrupted 1, node-leaked 1
8 marked
9 clean
full disk:
4-6 clean
7 block-leaked 1
8 growth-interrupted 1
no memory:
5-6 clean
end of memory:
5 clean
6 block-leaked 1
)"},
    {"create_directory_in_indirect_parent_block_from_chain",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4-5 marked, block-leaked 1, node-leaked 1
6 marked, node-leaked 1
7-8 marked, block-leaked 1, node-leaked 1
9-10 marked, block-leaked 2, node-leaked 1
11 marked
12 clean
full disk:
4 clean
5 block-leaked 1
6 clean
7-8 block-leaked 1
9-11 block-leaked 2
no memory:
5-7 clean
8-9 block-leaked 1
10 block-leaked 2
end of memory:
5-6 clean
7-8 block-leaked 1
9 block-leaked 2
10 block-leaked 3
)"},
    {"create_directory_popping_record_before_another",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4-5 clean
6 node-leaked 1
7-8 block-leaked 1, node-leaked 1
9 node-leaked 1
10 append-interrupted 1
11-12 clean
full disk:
7-8 block-leaked 1
9-10 clean
11 dir-beyond-size 1
no memory:
8 clean
9 block-leaked 1
10 clean
end of memory:
8-9 clean
10 block-leaked 1
)"},
    {"append_first_bytes",
     R"(
0 clean
1 block-leaked 1
2 marked, block-leaked 1
3 marked
4 clean
)"},
    {"append_within_block overwrite_file_of_one_block grow_within_block",
     R"(
0-1 clean
2-3 marked
4 clean
)"},
    {"append_to_fill_one_block",
     R"(
0-1 clean
2-4 marked
5 clean
)"},
    {"append_direct_blocks",
     R"(
0-1 clean
2-3 marked
4-9 in turn marked, block-leaked 1; marked
10 clean
)"},
    {"append_direct_blocks_from_chain",
     R"(
0-1 clean
2-3 marked
4-12 in turn marked, block-leaked 1; marked, block-leaked 1; marked
13 clean
)"},
    {"append_across_indirect_border grow_across_indirect_border",
     R"(
0-1 clean
2-3 marked
4 marked, block-leaked 1
5 marked, block-leaked 2
6 marked
7 marked, block-leaked 1
8 marked, growth-interrupted 1
9 marked
10 clean
)"},
    {"append_across_indirect_border_from_chain grow_across_indirect_border_from_chain",
     R"(
0-1 clean
2-3 marked
4-5 marked, block-leaked 1
6-7 marked, block-leaked 2
8 marked
9-10 marked, block-leaked 1
11 marked, growth-interrupted 1
12 marked
13 clean
)"},
    {"append_within_indirect",
     R"(
0 clean
1 block-leaked 1
2 marked, block-leaked 1
3 marked, growth-interrupted 1
4 marked
5 marked, block-leaked 1
6 marked, growth-interrupted 1
7 marked
8 clean
)"},
    {"append_block_popping_record append_block_popping_record_before_another grow_popping_record_before_another",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4-5 clean
)"},
    {"append_block_popping_record_in_indirect",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4 growth-interrupted 1
5-6 clean
)"},
    {"append_blocks_popping_record_in_between",
     R"(
0-1 clean
2-3 marked
4-5 marked, block-leaked 1
6-7 marked, block-leaked 2
8 marked
9-10 marked, block-leaked 1
11 marked, growth-interrupted 1
12 marked
13 marked, block-leaked 1
14 marked, growth-interrupted 1
15 marked
16 clean
)"},
    {"append_indirect_block_popping_record",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4 block-leaked 2
5-6 clean
)"},
    {"append_after_shrink",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4 marked, growth-interrupted 1
5 marked
6-7 marked, block-leaked 1
8 marked, growth-interrupted 1
9 marked
10 clean
)"},
    {"overwrite_across_indirect_border overwrite_across_second_level_border",
     R"(
0-3 clean
)"},
    {"overwrite_and_append",
     R"(
0-2 clean
3-4 marked
5 marked, block-leaked 1
6 marked, block-leaked 2
7 marked
8 marked, block-leaked 1
9 marked, growth-interrupted 1
10 marked
11 clean
)"},
    {"append_across_double_border",
     R"(
0-1 clean
2-3 marked
4-6 marked, block-leaked 1 to 3
7 marked
8 marked, block-leaked 1
9 marked, growth-interrupted 1
10 marked
11 clean
full disk:
6 block-leaked 1
no memory:
2 block-leaked 1
end of memory:
)"},
    {"append_across_double_border_from_chain",
     R"(
0-1 clean
2-3 marked
4-5 marked, block-leaked 1
6-7 marked, block-leaked 2
8-9 marked, block-leaked 3
10 marked
11-12 marked, block-leaked 1
13 marked, growth-interrupted 1
14 marked
15 clean
full disk:
8-9 block-leaked 2
no memory:
4-5 block-leaked 2
end of memory:
)"},
    {"append_across_double_border_popping_record",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4-5 marked, block-leaked 2
6 marked, block-leaked 3
7 marked
8 clean
full disk:
6 block-leaked 1
no memory:
5 block-leaked 1
end of memory:
)"},
    {"append_across_double_border_popping_record_first",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4 block-leaked 2
5 block-leaked 3
6-7 clean
full disk:
5 block-leaked 1
no memory:
4 block-leaked 1
end of memory:
)"},
    {"append_across_second_level_border",
     R"(
0-1 clean
2-3 marked
4 marked, block-leaked 1
5 marked, block-leaked 2
6 marked, growth-interrupted 1
7 marked
8 marked, block-leaked 1
9 marked, growth-interrupted 1
10 marked
11 clean
)"},
    {"append_within_second_level",
     R"(
0 clean
1 block-leaked 1
2 marked, block-leaked 1
3 marked, growth-interrupted 1
4 marked
5 clean
)"},
    {"overwrite_across_double_border",
     R"(
0-4 clean
)"},
    {"grow_from_nothing",
     R"(
0 clean
1 block-leaked 1
2 marked, block-leaked 1
3 marked
4 marked, block-leaked 1
5 marked
6 clean
)"},
    {"grow_popping_record",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4 clean
5 block-leaked 1
6-7 clean
)"},
    {"shrink_within_block rename rename_in_second_block set_attributes move_within_directory",
     R"(
0 clean
1-2 marked
3 clean
)"},
    {"shrink_by_direct_blocks",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4-5 marked
6 clean
)"},
    {"shrink_across_indirect_border shrink_across_double_border",
     R"(
0 clean
1 marked
2 marked, shrink-interrupted 1, block-leaked 1
3-4 marked, block-leaked 1
5 marked
6 marked, shrink-interrupted 1, block-leaked 1
7 marked, block-leaked 1
8-9 marked
10 clean
)"},
    {"shrink_to_nothing",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4 marked
5 marked, block-leaked 1
6 marked
7 clean
)"},
    {"shrink_to_nothing_keeping_indirect",
     R"(
0 clean
1 marked
2 marked, shrink-interrupted 1, block-leaked 1
3-4 marked, block-leaked 1
5-17 in turn marked; marked, block-leaked 1
18 clean
)"},
    {"shrink_into_chain",
     R"(
0 clean
1 marked
2 marked, shrink-interrupted 1, block-leaked 1
3 marked, block-leaked 1
4 marked
5 marked, shrink-interrupted 1, block-leaked 1
6 marked, block-leaked 1
7-8 marked
9 clean
)"},
    {"grow_across_double_border",
     R"(
0-1 clean
2-3 marked
4-6 marked, block-leaked 1 to 3
7 marked
8 marked, block-leaked 1
9 marked, growth-interrupted 1
10 marked
11 clean
full disk:
6 block-leaked 1
no memory:
3 block-leaked 1
end of memory:
)"},
    {"grow_across_double_border_popping_record",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4-5 marked, block-leaked 2
6-7 marked, block-leaked 3
8 marked
9 clean
full disk:
6-7 block-leaked 2
no memory:
5 block-leaked 1
6 block-leaked 2
end of memory:
)"},
    {"grow_across_second_level_border",
     R"(
0-1 clean
2-3 marked
4 marked, block-leaked 1
5 marked, block-leaked 2
6 marked, growth-interrupted 1
7 marked
8 clean
)"},
    {"shrink_across_second_level_border",
     R"(
0 clean
1 marked
2 marked, shrink-interrupted 1, block-leaked 1
3-4 marked, block-leaked 1
5-6 marked
7 clean
)"},
    {"shrink_onto_full_record",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4 marked
5 marked, block-leaked 1
6-7 marked
8 clean
)"},
    {"shrink_filling_record",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3 marked
4-5 marked, block-leaked 1
6 marked
7 marked, block-leaked 1
8-9 marked
10 clean
)"},
    {"delete_empty_file delete_empty_file_from_middle",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4 marked
5 clean
)"},
    {"delete_empty_file_from_other_block",
     R"(
0 clean
1 marked
2 marked, entry-doubled 1, node-leaked 1
3 marked, removal-interrupted 1, node-leaked 1
4 marked, node-leaked 1
5 marked
6 clean
)"},
    {"delete_empty_file_alone_in_block",
     R"(
0 clean
1 marked
2-3 marked, last-block-freed 1, node-leaked 1
4 marked, node-leaked 1
5 marked
6 clean
full disk:
2-3 block-leaked 1, node-leaked 1
no memory:
5-7 block-leaked 1, node-leaked 1
)"},
    {"delete_empty_file_alone_in_block_into_chain",
     R"(
0 clean
1 marked
2 marked, last-block-freed 1
3 marked, node-leaked 1
4 marked
5 clean
full disk:
2 block-leaked 1, node-leaked 1
no memory:
5 block-leaked 1, node-leaked 1
)"},
    {"delete_empty_file_emptying_other_block",
     R"(
0 clean
1 marked
2 marked, entry-doubled 1, node-leaked 1
3-4 marked, last-block-freed 1, node-leaked 1
5 marked, node-leaked 1
6 marked
7 clean
full disk:
3-4 block-leaked 1, node-leaked 1
no memory:
6-8 block-leaked 1, node-leaked 1
)"},
    {"delete_empty_file_emptying_other_block_into_chain",
     R"(
0 clean
1 marked
2 marked, entry-doubled 1, node-leaked 1
3 marked, entry-doubled 1, last-block-freed 1, node-leaked 1
4 marked, node-leaked 1
5 marked
6 clean
full disk:
3 block-leaked 1, node-leaked 1
no memory:
6 block-leaked 1, node-leaked 1
)"},
    {"delete_file delete_file_onto_full_record",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4-6 marked, block-leaked 3
7 marked, block-leaked 2
8 marked, block-leaked 1
9 marked
10 clean
)"},
    {"delete_file_into_chain",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4-5 marked, block-leaked 3
6 marked, block-leaked 2
7 marked, block-leaked 1
8 marked
9 clean
)"},
    {"delete_file_with_indirect",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4-6 marked, block-leaked 9
7-14 marked, block-leaked 8 to 1
15 marked
16 clean
)"},
    {"delete_file_with_parent_block",
     R"(
0 clean
1 marked
2-3 marked, last-block-freed 1, node-leaked 1
4 marked, node-leaked 1
5-6 marked, block-leaked 9
7-14 marked, block-leaked 8 to 1
15 marked
16 clean
full disk:
2-3 block-leaked 1, node-leaked 1
no memory:
5-7 block-leaked 1, node-leaked 1
)"},
    {"delete_file_with_node_block",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4-6 marked, block-leaked 2
7 marked, block-leaked 1
8 marked
9 marked, block-leaked 1
10 marked
11 clean
)"},
    {"delete_empty_file_with_node_block",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4 marked
5-6 marked, block-leaked 1
7 marked
8 clean
)"},
    {"delete_file_with_node_and_parent_block",
     R"(
0 clean
1 marked
2-3 marked, last-block-freed 1, node-leaked 1
4 marked, node-leaked 1
5-6 marked, block-leaked 2
7 marked, block-leaked 1
8 marked
9 marked, block-leaked 1
10 marked
11 clean
full disk:
2-3 block-leaked 1, node-leaked 1
no memory:
5-7 block-leaked 1, node-leaked 1
)"},
    {"delete_in_root_from_middle delete_directory",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4-6 marked, block-leaked 1
7 marked
8 clean
)"},
    {"delete_in_root_from_other_block",
     R"(
0 clean
1 marked
2 marked, entry-doubled 1, node-leaked 1
3 marked, removal-interrupted 1, node-leaked 1
4 marked, node-leaked 1
5-7 marked, block-leaked 1
8 marked
9 clean
)"},
    {"delete_in_root_alone_in_block",
     R"(
0 clean
1 marked
2-3 marked, last-block-freed 1, node-leaked 1
4 marked, node-leaked 1
5-6 marked, block-leaked 1
7 marked
8 clean
full disk:
2-3 block-leaked 1, node-leaked 1
no memory:
3-5 block-leaked 1, node-leaked 1
)"},
    {"delete_in_root_alone_in_block_into_chain",
     R"(
0 clean
1 marked
2 marked, last-block-freed 1
3 marked, node-leaked 1
4-5 marked, block-leaked 1
6 marked
7 clean
full disk:
2 block-leaked 1, node-leaked 1
no memory:
3 block-leaked 1, node-leaked 1
)"},
    {"delete_in_root_emptying_other_block",
     R"(
0 clean
1 marked
2 marked, entry-doubled 1, node-leaked 1
3-4 marked, last-block-freed 1, node-leaked 1
5 marked, node-leaked 1
6-7 marked, block-leaked 1
8 marked
9 clean
full disk:
3-4 block-leaked 1, node-leaked 1
no memory:
4-6 block-leaked 1, node-leaked 1
)"},
    {"delete_file_after_shrink",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4-5 marked, block-leaked 4
6-8 marked, block-leaked 3 to 1
9 block-leaked 1
)"},
    {"delete_file_shrunk_to_nothing",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4 marked, block-leaked 1
5 block-leaked 1
)"},
    {"delete_directory_with_node_and_parent_block",
     R"(
0 clean
1 marked
2-3 marked, last-block-freed 1, node-leaked 1
4 marked, node-leaked 1
5-6 marked, block-leaked 1
7 marked
8 marked, block-leaked 1
9 marked
10 clean
full disk:
2-3 block-leaked 1, node-leaked 1
no memory:
6-8 block-leaked 1, node-leaked 1
)"},
    {"delete_empty_file_alone_in_block_onto_full_record",
     R"(
0 clean
1 marked
2-3 marked, last-block-freed 1, node-leaked 1
4 marked, node-leaked 1
5 marked
6 clean
full disk:
2-3 block-leaked 1, node-leaked 1
no memory:
5-6 block-leaked 1, node-leaked 1
)"},
    {"delete_in_root_alone_in_indirect_block",
     R"(
0 clean
1 marked
2-3 marked, shrink-interrupted 1, block-leaked 1, node-leaked 1
4 marked, shrink-interrupted 1, node-leaked 1
5 marked, node-leaked 1
6-7 marked, block-leaked 1
8 marked
9 clean
full disk:
3-4 block-leaked 1, node-leaked 1
no memory:
3-5 block-leaked 1, node-leaked 1
)"},
    {"delete_empty_file_alone_in_indirect_block",
     R"(
0 clean
1 marked
2-3 marked, shrink-interrupted 1, block-leaked 1, node-leaked 1
4 marked, shrink-interrupted 1, node-leaked 1
5 marked, node-leaked 1
6 marked
7 clean
full disk:
3-4 block-leaked 1, node-leaked 1
no memory:
5-7 block-leaked 1, node-leaked 1
)"},
    {"delete_empty_file_emptying_indirect_block",
     R"(
0 clean
1 marked
2 marked, entry-doubled 1, node-leaked 1
3-4 marked, shrink-interrupted 1, block-leaked 1, node-leaked 1
5 marked, shrink-interrupted 1, node-leaked 1
6 marked, node-leaked 1
7 marked
8 clean
full disk:
4-5 block-leaked 1, node-leaked 1
no memory:
6-8 block-leaked 1, node-leaked 1
)"},
    {"delete_empty_file_emptying_indirect_block_into_chain",
     R"(
0 clean
1 marked
2 marked, entry-doubled 1, node-leaked 1
3 marked, shrink-interrupted 1, block-leaked 1, node-leaked 1
4 marked, shrink-interrupted 1, node-leaked 1
5 marked, node-leaked 1
6 marked
7 clean
full disk:
4 block-leaked 1, node-leaked 1
no memory:
6 block-leaked 1, node-leaked 1
)"},
    {"delete_file_filling_record",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4-5 marked, block-leaked 3
6-7 marked, block-leaked 2
8 marked, block-leaked 1
9 marked
10 clean
)"},
    {"delete_file_with_double_indirect",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4-6 marked, block-leaked 268
7-260 marked, block-leaked 267 to 14
261-274 marked, block-leaked 14 to 1
275 marked
276 clean
)"},
    {"delete_file_with_two_second_levels",
     R"(
0 clean
1 marked
2 marked, removal-interrupted 1, node-leaked 1
3 marked, node-leaked 1
4-6 marked, block-leaked 523
7-260 marked, block-leaked 522 to 269
261-515 marked, block-leaked 269 to 15
516-530 marked, block-leaked 15 to 1
531 marked
532 clean
)"},
    {"move_file move_file_from_middle",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3 marked, two-names 1
4 marked, removal-interrupted 1
5 marked
6 clean
)"},
    {"move_file_from_other_block",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3 marked, two-names 1
4 marked, entry-doubled 1
5 marked, removal-interrupted 1
6 marked
7 clean
)"},
    {"move_file_to_new_block",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3 marked, two-names 1
4 marked, removal-interrupted 1
5 marked
6 clean
)"},
    {"move_file_to_new_block_from_chain",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4 marked, two-names 1
5 marked, removal-interrupted 1
6 marked
7 clean
)"},
    {"move_file_to_new_block_popping_record",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4 two-names 1
5 removal-interrupted 1
6-7 clean
)"},
    {"move_file_giving_block_back",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3 marked, two-names 1
4-5 marked, last-block-freed 1
6 marked
7 clean
full disk:
4-5 block-leaked 1
no memory:
11-13 block-leaked 1
)"},
    {"move_file_giving_block_back_into_chain",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3 marked, two-names 1
4 marked, last-block-freed 1, two-names 1
5 marked
6 clean
full disk:
4 block-leaked 1
no memory:
11 block-leaked 1
)"},
    {"move_file_emptying_other_block",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3 marked, two-names 1
4 marked, entry-doubled 1
5-6 marked, last-block-freed 1
7 marked
8 clean
full disk:
5-6 block-leaked 1
no memory:
12-14 block-leaked 1
)"},
    {"move_file_taking_and_giving_blocks",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3 marked, two-names 1
4-5 marked, last-block-freed 1
6 marked
7 clean
full disk:
4-5 block-leaked 1
no memory:
11-13 block-leaked 1
)"},
    {"move_file_popping_record_and_giving_block_back",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4 two-names 1
5 last-block-freed 1
6 marked, last-block-freed 1
7 marked
8 clean
full disk:
5-6 block-leaked 1
no memory:
12-14 block-leaked 1
)"},
    {"move_file_to_indirect_block",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3 marked, block-leaked 2
4 marked, two-names 1
5 marked, removal-interrupted 1
6 marked
7 clean
)"},
    {"move_file_giving_indirect_block_back",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3 marked, two-names 1
4-5 marked, shrink-interrupted 1, block-leaked 1
6 marked, shrink-interrupted 1
7 marked
8 clean
full disk:
5-6 block-leaked 1
no memory:
11-13 block-leaked 1
)"},
    {"move_file_emptying_indirect_block",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3 marked, two-names 1
4 marked, entry-doubled 1
5-6 marked, shrink-interrupted 1, block-leaked 1
7 marked, shrink-interrupted 1
8 marked
9 clean
full disk:
6-7 block-leaked 1
no memory:
12-14 block-leaked 1
)"},
    {"move_directory move_directory_from_middle move_directory_to_root move_directory_from_root",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3-4 marked, two-names 1
5 marked, removal-interrupted 1
6 marked
7 clean
)"},
    {"move_directory_from_other_block",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3-4 marked, two-names 1
5 marked, entry-doubled 1
6 marked, removal-interrupted 1
7 marked
8 clean
)"},
    {"move_directory_to_new_block",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3-4 marked, two-names 1
5 marked, removal-interrupted 1
6 marked
7 clean
)"},
    {"move_directory_to_new_block_from_chain",
     R"(
0 clean
1 marked
2-3 marked, block-leaked 1
4-5 marked, two-names 1
6 marked, removal-interrupted 1
7 marked
8 clean
)"},
    {"move_directory_to_new_block_popping_record",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4-5 two-names 1
6 removal-interrupted 1
7-8 clean
)"},
    {"move_directory_giving_block_back",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3-4 marked, two-names 1
5-6 marked, last-block-freed 1
7 marked
8 clean
full disk:
5-6 block-leaked 1
no memory:
13-15 block-leaked 1
)"},
    {"move_directory_giving_block_back_into_chain",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3-4 marked, two-names 1
5 marked, last-block-freed 1, two-names 1
6 marked
7 clean
full disk:
5 block-leaked 1
no memory:
13 block-leaked 1
)"},
    {"move_directory_emptying_other_block",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3-4 marked, two-names 1
5 marked, entry-doubled 1
6-7 marked, last-block-freed 1
8 marked
9 clean
full disk:
6-7 block-leaked 1
no memory:
14-16 block-leaked 1
)"},
    {"move_directory_taking_and_giving_blocks",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3-4 marked, two-names 1
5-6 marked, last-block-freed 1
7 marked
8 clean
full disk:
5-6 block-leaked 1
no memory:
13-15 block-leaked 1
)"},
    {"move_directory_popping_record_and_giving_block_back",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4-5 two-names 1
6 last-block-freed 1
7 marked, last-block-freed 1
8 marked
9 clean
full disk:
6-7 block-leaked 1
no memory:
14-16 block-leaked 1
)"},
    {"move_directory_to_indirect_block",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3 marked, block-leaked 2
4-5 marked, two-names 1
6 marked, removal-interrupted 1
7 marked
8 clean
)"},
    {"move_directory_giving_indirect_block_back",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3-4 marked, two-names 1
5-6 marked, shrink-interrupted 1, block-leaked 1
7 marked, shrink-interrupted 1
8 marked
9 clean
full disk:
6-7 block-leaked 1
no memory:
13-15 block-leaked 1
)"},
    {"move_directory_emptying_indirect_block",
     R"(
0 clean
1 marked
2 marked, append-interrupted 1
3-4 marked, two-names 1
5 marked, entry-doubled 1
6-7 marked, shrink-interrupted 1, block-leaked 1
8 marked, shrink-interrupted 1
9 marked
10 clean
full disk:
7-8 block-leaked 1
no memory:
14-16 block-leaked 1
)"},
    {"copy_empty_file",
     R"(
0 clean
1-2 marked
3-4 marked, node-leaked 1
5 marked, append-interrupted 1
6 marked
7 clean
full disk:
4-5 clean
6 dir-beyond-size 1
no memory:
7 clean
)"},
    {"copy_file",
     R"(
0 clean
1-2 marked
3-9 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1
10 marked, append-interrupted 1
11 marked
12 clean
full disk:
4-10 clean
11 dir-beyond-size 1
no memory:
11-12 clean
end of memory:
11 clean
12 block-leaked 3
)"},
    {"copy_file_across_indirect_border",
     R"(
0 clean
1-2 marked
3-16 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1
17 marked, block-leaked 2, node-leaked 1
18 marked, node-leaked 1
19 marked, block-leaked 1, node-leaked 1
20 marked, growth-interrupted 1, node-leaked 1
21 marked, node-leaked 1
22 marked, append-interrupted 1
23 marked
24 clean
full disk:
4-16 clean
17 block-leaked 1
18-19 clean
20 block-leaked 1
21-22 clean
23 dir-beyond-size 1
no memory:
9 clean
10 block-leaked 1
11 clean
end of memory:
9 clean
10 block-leaked 7
11 block-leaked 9
)"},
    {"copy_file_across_indirect_border_from_chain",
     R"(
0 clean
1-2 marked
3-23 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1; marked, block-leaked 1, node-leaked 1
24-25 marked, block-leaked 2, node-leaked 1
26 marked, node-leaked 1
27-28 marked, block-leaked 1, node-leaked 1
29 marked, growth-interrupted 1, node-leaked 1
30 marked, node-leaked 1
31 marked, append-interrupted 1
32 marked
33 clean
full disk:
4 clean
5-23 in turn block-leaked 1; clean; block-leaked 1
24-25 block-leaked 2
26 clean
27-29 block-leaked 1
30-31 clean
32 dir-beyond-size 1
no memory:
9-10 clean
11-16 block-leaked 1
17-18 block-leaked 2
19 block-leaked 1
20 clean
end of memory:
9-10 clean
11-18 block-leaked 1 to 8
19 block-leaked 8
20 block-leaked 9
)"},
    {"copy_file_popping_record",
     R"(
0 clean
1-2 marked
3 marked, node-leaked 1
4-5 marked, block-leaked 1, node-leaked 1
6 marked, node-leaked 1
7 marked, append-interrupted 1
8 marked
9 clean
full disk:
4 clean
5 block-leaked 1
6-7 clean
8 dir-beyond-size 1
no memory:
7-9 clean
end of memory:
7-8 clean
9 block-leaked 1
)"},
    {"copy_file_in_new_node_and_parent_block",
     R"(
0 clean
1 marked
2 marked, block-leaked 1
3-4 marked
5 marked, node-leaked 1
6 marked, block-leaked 1, node-leaked 1
7 marked, node-leaked 1
8 marked, block-leaked 1, node-leaked 1
9 marked
10 clean
full disk:
6-8 clean
9 block-leaked 1
no memory:
9-10 clean
end of memory:
9 clean
10 block-leaked 1
)"},
    {"copy_file_popping_record_for_node_block",
     R"(
0 clean
1 marked
2-3 block-leaked 1
4-5 clean
6 node-leaked 1
7 block-leaked 1, node-leaked 1
8 node-leaked 1
9 append-interrupted 1
10-11 clean
full disk:
7-9 clean
10 dir-beyond-size 1
no memory:
10-11 clean
end of memory:
10 clean
11 block-leaked 1
)"},
    {"copy_file_from_blocks_of_4096",
     R"(
0 clean
1-2 marked
3-16 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1
17 marked, block-leaked 2, node-leaked 1
18-27 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1; marked, growth-interrupted 1, node-leaked 1
28 marked, append-interrupted 1
29 marked
30 clean
full disk:
4-16 clean
17-28 in turn block-leaked 1; clean; clean
29 dir-beyond-size 1
no memory:
7 clean
8 block-leaked 1
9 clean
end of memory:
7 clean
8 block-leaked 7
9 block-leaked 11
)"},
    {"copy_file_from_blocks_of_8192_1024",
     R"(
0 clean
1-2 marked
3-16 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1
17 marked, block-leaked 2, node-leaked 1
18-36 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1; marked, growth-interrupted 1, node-leaked 1
37 marked, append-interrupted 1
38 marked
39 clean
full disk:
4-16 clean
17-37 in turn block-leaked 1; clean; clean
38 dir-beyond-size 1
no memory:
7 clean
8 block-leaked 1
9 clean
end of memory:
7 clean
8 block-leaked 7
9 block-leaked 14
)"},
    {"copy_file_across_double_border",
     R"(
0 clean
1-2 marked
3-16 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1
17 marked, block-leaked 2, node-leaked 1
18-784 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1; marked, growth-interrupted 1, node-leaked 1
785 marked, block-leaked 2, node-leaked 1
786 marked, block-leaked 3, node-leaked 1
787 marked, node-leaked 1
788 marked, block-leaked 1, node-leaked 1
789 marked, growth-interrupted 1, node-leaked 1
790 marked, node-leaked 1
791 marked, append-interrupted 1
792 marked
793 clean
full disk:
4-16 clean
17-785 in turn block-leaked 1; clean; clean
786 block-leaked 1
787-788 clean
789 block-leaked 1
790-791 clean
792 dir-beyond-size 1
no memory:
7 clean
8-10 block-leaked 1
11 clean
end of memory:
7 clean
8 block-leaked 7
9 block-leaked 264
10 block-leaked 265
11 block-leaked 267
)"},
    {"copy_file_across_double_border_popping_record",
     R"(
0 clean
1-2 marked
3-23 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1; marked, block-leaked 1, node-leaked 1
24-25 marked, block-leaked 2, node-leaked 1
26-1048 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1; marked, block-leaked 1, node-leaked 1; marked, growth-interrupted 1, node-leaked 1
1049-1050 marked, block-leaked 2, node-leaked 1
1051 marked, block-leaked 3, node-leaked 1
1052 marked, node-leaked 1
1053 marked, append-interrupted 1
1054 marked
1055 clean
full disk:
4 clean
5-23 in turn block-leaked 1; clean; block-leaked 1
24-25 block-leaked 2
26-1048 in turn clean; block-leaked 1; block-leaked 1; block-leaked 1
1049-1050 block-leaked 2
1051 block-leaked 1
1052-1053 clean
1054 dir-beyond-size 1
no memory:
7-8 clean
9-14 block-leaked 1
15-16 block-leaked 2
17-18 block-leaked 1
19 clean
20-273 block-leaked 1
274 block-leaked 2
275 block-leaked 1
276 clean
end of memory:
7-8 clean
9-16 block-leaked 1 to 8
17-274 block-leaked 8 to 265
275 block-leaked 265
276 block-leaked 266
)"},
    {"copy_file_from_blocks_of_1024",
     R"(
0 clean
1-2 marked
3-9 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1
10 marked, append-interrupted 1
11 marked
12 clean
full disk:
4-10 clean
11 dir-beyond-size 1
no memory:
7-8 clean
end of memory:
7 clean
8 block-leaked 3
)"},
    {"copy_file_from_blocks_of_8192_4096",
     R"(
0 clean
1-2 marked
3-11 in turn marked, node-leaked 1; marked, block-leaked 1, node-leaked 1
12 marked, append-interrupted 1
13 marked
14 clean
full disk:
4-12 clean
13 dir-beyond-size 1
no memory:
7-8 clean
end of memory:
7 clean
8 block-leaked 4
)"},
};

// Whether a word is in a list of words with single spaces between them.
bool Has(const std::string& list, const std::string& word) {
  return (" " + list + " ").find(" " + word + " ") != std::string::npos;
}

}  // namespace

std::string VerdictsOf(const std::string& operation, const std::string& blockSize) {
  for (const std::string& name : {operation + "_" + blockSize, operation}) {
    for (const Row& row : kRows) {
      if (Has(row.operations, name)) return row.verdicts + 1;  // behind the first line's end
    }
  }
  return "";
}

}  // namespace testhost
