# Adds up the instructions of a callgrind dump by what they are spent on, in the order of the rules
# below: the first whose pattern a function's name matches has it. Names must not be compressed.

BEGIN {
  rule("reading texts for JSON", "::growth|escape_growth")
  rule("copying texts", "widen|copy_units|new_text|memcpy|memmove|unicode_fast_translate")
  rule("looking into dicts", "lookdict|PyDict_GetItem|PyDict_Next|dict::get")
  rule("making and freeing dicts, lists, sets", \
       "[dD]ict|insert_to_empty|free_keys|find_empty_slot|[lL]ist_|PyList|new_list|set_add|PySet|setiter|set_item")
  rule("the host's own calls", \
       "type_call|unicode_new|PyObject_Str|MakeTpCall|[tT]uple|CheckFunctionResult|IS_GC|CheckSignals|host::call|path_names")
  rule("memory", "alloc|free|NewReference|GC_")
  rule("reading records", "read_|symbol_lines|integer|missing|text_form|take_|expect_pair|items|listed_line")
  rule("checking and measuring values", "json_meter|size_of")
  rule("the module's other work", "grounding_fit|std::")
  rule("the host's other work", ".")
}

function rule(name, pattern) { names[++rules] = name; patterns[rules] = pattern }

function group_of(function_name, i) {
  if (!(function_name in known)) {
    for (i = 1; function_name !~ patterns[i];) i++
    known[function_name] = i
  }
  return known[function_name]
}

/^fn=/ { current = group_of(substr($0, 4)) }
/^calls=/ { getline; next } # the next line holds what the called function took
/^[0-9+*-]/ { sums[current] += $2; total += $2 }

END { for (i = 1; i <= rules; i++) printf "%s\t%.1f\n", names[i], 100 * sums[i] / total }
