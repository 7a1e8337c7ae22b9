import { defineConfig } from 'vite';

// The names of the built files carry no fingerprint: a camera's folder holds one page, and an update replaces it whole.
const names = {
  entryFileNames: '[name].js',
  chunkFileNames: '[name].js',
  assetFileNames: '[name][extname]',
};

export default defineConfig({
  base: './',
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
