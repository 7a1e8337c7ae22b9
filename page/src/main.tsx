import { render } from 'preact';
import { App } from './app';
import { language } from './texts';
import { theme } from './theme';

document.documentElement.lang = language;
theme.restore();
render(<App />, document.body);
