"""The program tests that need nothing of a user land, on kernels and processors other than this machine's. They are written
once, in tests/program, and compare what they compare there: output byte for byte, statuses, signals, commands, log."""
# flake8: noqa: F401
from test_attacks import (
    test_daemon_on_an_overlay_of_the_tree_is_not_the_hosts, test_excluded_third_party_whose_executable_was_replaced_is_spared,
    test_few_descriptors_are_an_error_or_a_whole_listing,
    test_replaced_third_party_that_no_list_names_is_ended, test_root_of_a_user_namespace_is_told_that_it_was_denied,
    test_service_of_the_host_that_runs_the_products_code_is_only_listed, test_stranger_named_like_a_row_is_never_run_with_terminate)
from test_languages import test_a_catalog_of_our_making_is_read, test_bad_command_line_and_usage, test_listing
from test_lister import (
    listing, test_chroot_into_the_tree_is_not_the_hosts_path, test_container_with_its_own_copy_of_the_tree_is_not_the_hosts,
    test_container_with_the_hosts_tree_is_not_the_hosts,
    test_daemon_is_listed, test_hardened_service_in_a_private_mount_namespace_is_the_hosts,
    test_hardened_service_keeps_its_path_when_it_is_upgraded,
    test_holder_in_a_private_mount_namespace_counts_only_with_the_hosts_files, test_lazily_detached_mount_proves_no_path,
    test_mount_below_the_tree_that_was_detached_takes_its_path_along,
    test_path_that_a_shell_would_run_is_listed_and_never_run,
    test_private_mount_namespace_with_another_tree_is_not_the_hosts,
    test_script_in_a_container_with_the_hosts_tree_is_not_the_hosts,
    test_script_in_a_private_mount_namespace_with_the_hosts_tree_is_the_hosts,
    test_script_of_another_tree_in_a_private_mount_namespace_is_not_the_hosts, test_script_of_the_product_is_its_process,
    test_script_that_calls_the_program_is_not_stopped_by_it, test_zombies_are_no_records)
from test_output import (
    test_excluded_daemons_are_left_alone, test_list_with_third_parties, test_normal_shutdown,
    test_strangers_named_like_rows_with_stop_commands_are_never_run,
    test_third_parties_of_both_categories_beside_a_survivor, test_third_party_gets_five_signals_and_is_told_once)
from test_whole_table import test_every_row_is_carried_out_once_in_order
