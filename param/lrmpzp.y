/* Grammar of parameter files and command lines. Only the automaton is used:
 * bison's XML report is packed into the driver's tables by gen_tables.py, so
 * the rules carry no actions here; the driver hands every reduction's rule
 * number to its caller. Rule order is the rule numbering, keep it. */
%token FLAG_ID_STRING 259
%token KEY_ID_STRING 260
%token QUOTED_STRING 261
%token STRING 262
%token ID_STRING 263
%token COMMENT 264
%start input_stream
%%
input_stream: positional_list parameter_list ;
positional_list: list_of_vals ;
positional_list: %empty ;
parameter_list: list_of_params ;
parameter_list: %empty ;
list_of_params: key_spec list_of_params ;
list_of_params: unix_param list_of_vals ;
list_of_params: key_spec ;
key_spec: ID_STRING '=' list_of_vals ;
key_spec: unix_param ;
unix_param: '-' FLAG_ID_STRING ;
unix_param: '-' KEY_ID_STRING ending ;
ending: value ;
ending: '=' value ;
list_of_vals: value list_of_vals ;
list_of_vals: value ;
value: val2 COMMENT ;
value: val2 ;
val2: STRING ;
val2: QUOTED_STRING ;
val2: '(' list_of_vals ')' ;
%%
