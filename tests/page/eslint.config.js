// For all of the project's JavaScript: script/lint runs it.
import js from '@eslint/js';
import globals from 'globals';

export default [
  {ignores: ['build/', '**/node_modules/']},
  js.configs.recommended,
  {
    linterOptions: {reportUnusedDisableDirectives: 'error'},
    rules: {
      'array-callback-return': 'error',
      eqeqeq: 'error',
      'no-unused-expressions': 'error',
      'no-var': 'error',
      'object-shorthand': 'error',
      'prefer-const': 'error',
    },
  },
  {files: ['host/web/**'], languageOptions: {globals: globals.browser}},
  // The tests hand functions to the page, where they also find what the tests put there.
  {
    files: ['script/**', 'tests/page/**'],
    languageOptions: {globals: {...globals.node, ...globals.browser, axe: 'readonly', raised: 'readonly'}},
  },
];
