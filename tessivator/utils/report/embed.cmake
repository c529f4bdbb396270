# Run with -P: writes the page's sources as string constants to OUTPUT, and its script also to SCRIPT.
#   PAGE     the folder with style.css, body.html and the script's parts
#   PARTS    the parts, in their order, separated by commas
#   NAMES    report_names.def, whose lines become the script's first constants
string(REPLACE "," ";" PARTS "${PARTS}")

# list(VARIABLE, MACRO): the arguments of the lines MACRO(...) of NAMES, the first one of each as a JavaScript string.
file(STRINGS "${NAMES}" lines REGEX "^REPORT_")
foreach(line IN LISTS lines)
  string(REGEX MATCH "^REPORT_([A-Z_]+)\\(([A-Za-z0-9]+)(, (\".*\"))?\\)$" matched "${line}")
  set(kind "${CMAKE_MATCH_1}")
  set(name "${CMAKE_MATCH_2}")
  set(words "${CMAKE_MATCH_4}")
  list(APPEND ${kind}_names "'${name}'")
  list(APPEND ${kind}_words "${words}")
  list(LENGTH ${kind}_names number)
  math(EXPR number "${number} - 1")
  list(APPEND ${kind}_numbers "${name}: ${number}")
  list(APPEND ${kind}_same "${name}: '${name}'")
endforeach()
list(JOIN TEXT_COLUMN_names ", " text_columns)
list(JOIN CERTIFICATE_FIELD_names ", " certificate_fields)
list(JOIN PART_same ", " parts)
list(JOIN VERDICT_numbers ", " verdicts)
list(JOIN VERDICT_words ", " verdict_words)
set(script "'use strict';
const TEXT_COLUMNS = Object.freeze([${text_columns}]);
const PART = Object.freeze({${parts}});
const CERTIFICATE_FIELDS = Object.freeze([${certificate_fields}]);
const VERDICT = Object.freeze({${verdicts}});
const VERDICT_WORDS = Object.freeze([${verdict_words}]);
")
foreach(part IN LISTS PARTS)
  file(READ "${PAGE}/${part}" text)
  string(APPEND script "${text}")
endforeach()
file(WRITE "${SCRIPT}" "${script}")

file(READ "${PAGE}/style.css" style)
file(READ "${PAGE}/body.html" body)
set(source "#include \"utils/report/report_page.h\"\n\n")
foreach(constant IN ITEMS style script body)
  string(TOUPPER "${constant}" name)
  string(APPEND source "const std::string_view REPORT_PAGE_${name} = R\"page(${${constant}})page\";\n")
endforeach()
file(WRITE "${OUTPUT}" "${source}")
