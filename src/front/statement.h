// statement: the lines of all sources, one after the other, to code lists.
#pragma once

void yyparse();   // to the end of all input
