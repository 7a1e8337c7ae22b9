import { defineConfig, Plugin } from 'vite';

// The names of the built files carry no fingerprint: a camera's folder holds one page, and an update replaces it whole.
const names = {
  entryFileNames: '[name].js',
  chunkFileNames: '[name].js',
  assetFileNames: '[name][extname]',
};

/** Of the package's manifest the page takes what it needs: the many single corners have no field of their own. */
const manifest: Plugin = {
  name: 'manifest',
  enforce: 'pre',
  transform(code, id) {
    if (!/\/package\/manifest\.json$/.test(id.split('?')[0])) return null;
    const { parameters } = JSON.parse(code) as { parameters: Record<string, string>[] };
    const shown = parameters.filter(({ name }) => !/\d[xy]$/.test(name));
    return JSON.stringify({
      parameters: shown.map(({ name, type, default: usual, range, unit, help }) => ({
        name,
        type,
        default: usual,
        range,
        unit,
        help,
      })),
    });
  },
};

export default defineConfig({
  base: './',
  plugins: [manifest],
  esbuild: { jsx: 'automatic', jsxImportSource: 'preact' },
  build: {
    outDir: '../package/html',
    emptyOutDir: true,
    target: 'es2022',
    assetsInlineLimit: 0,
    modulePreload: false,
    cssCodeSplit: false,
    rollupOptions: { output: names },
  },
  worker: { format: 'es', rollupOptions: { output: names } },
});
