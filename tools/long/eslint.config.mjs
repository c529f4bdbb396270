// What tools/long-checks.sh asks of the page's script, joined as the program embeds it.
const browser = [
  'addEventListener', 'Blob', 'document', 'getComputedStyle', 'getSelection', 'history', 'location', 'navigator',
  'requestAnimationFrame', 'setTimeout', 'clearTimeout', 'URL', 'URLSearchParams'
];

export default [{
  files: ['page.js'],
  linterOptions: {reportUnusedDisableDirectives: 'error'},
  languageOptions: {
    ecmaVersion: 2022,
    sourceType: 'script',
    globals: Object.fromEntries(browser.map((name) => [name, 'readonly'])),
  },
  rules: Object.fromEntries([
    'array-callback-return', 'consistent-return', 'eqeqeq', 'no-constant-condition', 'no-dupe-keys', 'no-empty', 'no-eval', 'no-fallthrough', 'no-implied-eval', 'no-loop-func', 'no-nested-ternary',
    'no-new-func', 'no-param-reassign', 'no-redeclare', 'no-return-assign', 'no-self-assign', 'no-sequences', 'no-shadow',
    'no-undef', 'no-unreachable', 'no-unsafe-optional-chaining', 'no-unused-expressions', 'no-unused-vars',  'no-useless-escape', 'no-useless-return', 'no-var', 'prefer-const', 'radix', 'use-isnan',
  ].map((rule) => [rule, 'error'])),
}];
