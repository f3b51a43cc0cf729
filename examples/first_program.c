/* Prints one field of a configuration file:  first_program FILE -field=NAME [-section=NAME] */
#include <stdio.h>
#include <vq_glob.h>

static const cli_item kItems[] = {
    {'P', "FILE", CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "configuration file"},
    {'Q', "SECTION", CLI_VALUE_REQUIRED | CLI_DEFAULT, NULL, "Settings", NULL, NULL, NULL, 0, NULL, "section"},
    {'Q', "FIELD", CLI_VALUE_REQUIRED | CLI_MUST, NULL, NULL, NULL, NULL, NULL, 0, NULL, "field"},
    {0}};
static const cli_command kCommands[] = {{"SHOW", kItems, "print a field"}, {NULL, NULL, NULL}};

int main(int argc, char **argv) {
    void *conf = NULL;
    char *file, *section, *field, *value = NULL;
    int ok = cli_set_parse_mode(CLI_MODE_NO_COMMAND) && cli_set_command_table(kCommands) &&
             cli_dcl_parse_argv(argc, (const char *const *)argv) && cli_get_value("FILE", 'P', &file) &&
             cli_get_value("SECTION", 'Q', &section) && cli_get_value("FIELD", 'Q', &field) &&
             conf_allocate_handle(&conf) && conf_read_file_to_handle(conf, file) &&
             conf_get_string_field(conf, section, field, &value);
    if (ok) {
        printf("%s\n", value);
    } else {
        err_print_error_msg(); /* the error stack, newest entry first */
    }
    if (conf != NULL) {
        conf_free_handle(&conf);
    }
    return ok ? 0 : 1;
}
