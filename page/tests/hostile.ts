/** Texts that somebody may have typed as a name or written to the log: all of them are just text. None has line breaks. */
export const hostileTexts = [
  '<script>window.hacked = 1</script>',
  '"><script>window.hacked = 1</script>',
  "'><img src=x onerror=window.hacked=1>",
  '<img src=x onerror="window.hacked=1">',
  '<svg onload=window.hacked=1>',
  '<svg><script>window.hacked=1</script></svg>',
  '<iframe src="javascript:parent.hacked=1"></iframe>',
  '<a href="javascript:window.hacked=1">click</a>',
  '<body onload=window.hacked=1>',
  '<style>*{display:none}</style>',
  '<link rel=stylesheet href=//example.invalid/x.css>',
  '<meta http-equiv=refresh content="0;url=//example.invalid">',
  '<base href="//example.invalid/">',
  '<form action=//example.invalid><input name=x>',
  '<template><b>x</b></template>',
  '<!-- comment -->',
  '<![CDATA[ text ]]>',
  '<?xml version="1.0"?>',
  '&lt;b&gt;bold&lt;/b&gt;',
  '&#60;script&#62;',
  '&amp;&nbsp;&copy',
  '</td></tr></table><h1>out</h1>',
  '</textarea><script>window.hacked=1</script>',
  '</app><app>',
  '</root><root>',
  '<TotalOcc>999</TotalOcc>',
  '<StatusCam_0>Forged</StatusCam_0>',
  'javascript:window.hacked=1',
  'data:text/html,<script>window.hacked=1</script>',
  '{{constructor.constructor("window.hacked=1")()}}',
  '${window.hacked=1}',
  '`${window.hacked=1}`',
  '"; window.hacked = 1; //',
  "'; DROP TABLE cameras; --",
  '\\"\\u003cscript\\u003e',
  '\\x3cscript\\x3e',
  '%3Cscript%3Ewindow.hacked=1%3C/script%3E',
  '../../../../etc/passwd',
  '=HYPERLINK("//example.invalid")',
  '@SUM(1+1)*cmd',
  'name,with,commas',
  'error in the name',
  'tab\there',
  'null',
  '__proto__',
  'constructor',
  'ﷺ Übergröße – naïve 名前 😀👩‍👩‍👧',
  '\u202Eright to left',
  'zero\u200Bwidth\uFEFF',
  'Z̷̢͝a̸l̵g̶o̷',
  'W'.repeat(180),
];

/** Of those, what ends or begins an element of the camera's answers: in one field it changes what the next ones are. */
const isForged = (text: string) => /<\/?(app|root|TotalOcc|StatusCam)/.test(text);

/** As many as there are cameras in a building, so that each has a name of its own; those that are forged by themselves. */
export function hostileRounds(cameras: number): string[][] {
  const plain = hostileTexts.filter((text) => !isForged(text));
  const rounds = Array.from({ length: Math.ceil(plain.length / cameras) }, (_, i) =>
    plain.slice(i * cameras, (i + 1) * cameras),
  );
  return [...rounds, ...hostileTexts.filter(isForged).map((text) => [text])];
}
