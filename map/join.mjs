// Joins the page: puts the style, the program, the licences of the bundled libraries and the digest of
// the sources into index.html. Usage: node join.mjs DIRECTORY OUTPUT DIGEST
import { readFileSync, writeFileSync } from 'node:fs';

const [directory, output, digest] = process.argv.slice(2);
const read = (name) => readFileSync(`${directory}/${name}`, 'utf8').trim();
// The program must not contain a text that ends its script element.
const program = read('bundle.js').replaceAll('</script', '<\\/script');
const bundled = Object.keys(JSON.parse(read('bundle.json')).inputs).sort();
const packages = new Set(bundled.map((path) => path.match(/^node_modules\/([^/]+)/)?.[1]).filter(Boolean));
const licences = [...packages].map((name) => `${name}\n\n${read(`node_modules/${name}/LICENSE`)}`);

writeFileSync(output, read('index.html')
    .replace('<title>', () => `<!--\nThe digest of the sources is ${digest}.\n\n${licences.join('\n\n')}\n-->\n<title>`)
    .replace('/* style.css */', () => read('style.css'))
    .replace('/* main.js */', () => program) + '\n');
