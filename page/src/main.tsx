import { render } from 'preact';
import { App } from './app';
import { restoreTheme } from './theme';

restoreTheme();
render(<App />, document.body);
